#include "Session/SharedModel.h"

#include "Serialization/BinaryWriter.h"
#include "Tests/Session/StoredSession.h"

#include <gmock/gmock.h>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::IsEmpty;

class SharedModelTest : public StoredSessionTest
{
protected:
    void WriteObjects(const std::vector<const RTTI::Object*>& inObjects)
    {
        MakeDirectory("game/Shared");
        ASSERT_TRUE(Serialization::gWriteObjectsToFile(At("game/Shared/Model.dat"), inObjects, mErrors));
    }

    // "code: message" of the first error of a load that must fail.
    std::string LoadError()
    {
        Serialization::ReaderErrorState errors;
        EXPECT_EQ(GetSession().LoadSharedModel(mRegistry, errors), nullptr);
        if (errors.GetEntries().empty())
            return "";
        EXPECT_EQ(errors.GetEntries()[0].Context, At("game/Shared/Model.dat"));
        return std::to_string(errors.GetEntries()[0].Code) + ": " + errors.GetEntries()[0].Message;
    }
};

TEST_F(SharedModelTest, TheFirstSharedModelOfTheFileIsTaken)
{
    SharedModel first(GetSession());
    SavedBar bar;
    bar.LastAbsoluteAddress = 5;
    first.GetFiberState().AddFiberEvent(7, {bar}, 3.0);
    const SharedModel second(GetSession());
    WriteObjects({&GetSession().GetSessionInfo(), &first, &second});
    Serialization::ReaderErrorState errors;
    const std::unique_ptr<SharedModel> loaded = GetSession().LoadSharedModel(mRegistry, errors);
    ASSERT_NE(loaded, nullptr) << Utility::GetErrorText(errors);
    EXPECT_EQ(&loaded->GetSession(), &GetSession());
    std::vector<SavedBar> bars;
    EXPECT_FALSE(loaded->GetFiberState().FindFiberState(7, 2.0, bars));
    ASSERT_TRUE(loaded->GetFiberState().FindFiberState(7, 3.0, bars));
    EXPECT_THAT(bars, ElementsAre(testing::Field(&SavedBar::LastAbsoluteAddress, 5U)));
}

TEST_F(SharedModelTest, AFileWithoutOneIsRefused)
{
    EXPECT_EQ(LoadError(), "1: Unable to open file");
    WriteObjects({&GetSession().GetSessionInfo()});
    EXPECT_EQ(LoadError(), "6: The file does not appear to be a SharedModel file");
    WriteObjects({});
    EXPECT_EQ(LoadError(), "6: The file does not appear to be a SharedModel file");
    Write("Shared/Model.dat", "something else");
    EXPECT_EQ(LoadError(), "3: The file is not a Brenvaldoris file, or it is corrupted");
}

TEST_F(SharedModelTest, ResettingKeepsTheFolderAlone)
{
    EXPECT_TRUE(GetSession().ResetSharedModel(mErrors)) << "there is none";
    EXPECT_FALSE(Exists("Shared"));
    Write("Shared/Model.dat", "");
    Write("Shared/below/other", "");
    Write("beside", "");
    EXPECT_TRUE(GetSession().ResetSharedModel(mErrors));
    EXPECT_THAT(List("game/Shared"), IsEmpty());
    EXPECT_THAT(List("game"), ElementsAre("Shared", "beside"));
    EXPECT_THAT(mErrors.GetEntries(), IsEmpty());
}

} // namespace
