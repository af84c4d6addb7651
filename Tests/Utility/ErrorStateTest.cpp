#include "Utility/ErrorState.h"

#include <gtest/gtest.h>

#include <string>

using Utility::Check;
using Utility::ErrorContextScope;
using Utility::ErrorState;

namespace
{

TEST(ErrorState, SuccessNeitherRecordsNorFormats)
{
    ErrorState errors;
    const char* unreadable = reinterpret_cast<const char*>(1);
    EXPECT_TRUE(Check(errors, true, 0, "%s", unreadable));
    EXPECT_TRUE(errors.GetEntries().empty());
    EXPECT_EQ(Utility::GetErrorText(errors), "");
}

TEST(ErrorState, FailureRecordsCodeAndFormattedText)
{
    ErrorState errors;
    const std::string longText(5000, 'x');
    EXPECT_FALSE(Check(errors, false, 6, "%s and %d", longText.c_str(), 7));
    EXPECT_FALSE(Check(errors, false, 0, "100%s, %n"));
    ASSERT_EQ(errors.GetEntries().size(), 2U);
    EXPECT_EQ(errors.GetEntries()[0].Code, 6U);
    EXPECT_EQ(errors.GetEntries()[0].Message, longText + " and 7");
    EXPECT_EQ(errors.GetEntries()[1].Message, "100%s, %n") << "a text without arguments is no format";
}

TEST(ErrorState, OnlyTheInnermostOpenContextIsRecorded)
{
    ErrorState errors;
    const ErrorContextScope ofNoState(nullptr, "does nothing");
    {
        const ErrorContextScope outer(&errors, "outer");
        {
            const ErrorContextScope inner(&errors, "inner");
            errors.AddError(1, "first");
        }
        Check(errors, false, 2, "second");
    }
    errors.AddError(3, "third");
    ASSERT_EQ(errors.GetEntries().size(), 3U);
    EXPECT_EQ(errors.GetEntries()[0].Context, "inner");
    EXPECT_EQ(errors.GetEntries()[1].Context, "outer");
    EXPECT_EQ(errors.GetEntries()[2].Context, "");
    EXPECT_EQ(Utility::GetErrorText(errors), "Context: [no context], internal error: third\n"
                                             "Context: outer, internal error: second\n"
                                             "Context: inner, internal error: first");
}

} // namespace
