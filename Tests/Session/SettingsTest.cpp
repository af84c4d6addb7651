#include "RTTI/TypeQueries.h"
#include "Session/Settings/AnimatableValues.h"
#include "Session/Settings/CaptureMethod.h"
#include "Session/Settings/ChildProcessRules.h"
#include "Session/Settings/GeneralSettings.h"
#include "Session/Settings/SymbolSettings.h"
#include "Tests/FileSystem/TemporaryDirectory.h"
#include "Tests/System/VariableScope.h"
#include "Utility/ErrorState.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

namespace
{

using namespace Profiler;
using testing::ElementsAre;
using testing::IsEmpty;

// The home folder is "home", so that nothing is made in that of whoever runs the tests.
class SettingsTest : public TemporaryDirectoryTest
{
protected:
    // The texts of a failed validation, or nothing.
    template <class Settings>
    static std::string Validate(Settings& ioSettings)
    {
        Utility::ErrorState errors;
        const bool isValid = ioSettings.Validate(errors);
        EXPECT_EQ(isValid, errors.GetEntries().empty());
        std::string text;
        for (const Utility::ErrorEntry& entry : errors.GetEntries())
        {
            EXPECT_EQ(entry.Code, 0U);
            text += entry.Message;
        }
        return text;
    }

    static std::string ValidateCache(const std::string& inDirectory)
    {
        SharedSymbolSettings settings;
        settings.SetSymbolCacheDirectory(inDirectory);
        return Validate(settings);
    }

    static std::string ValidateTarget(const std::string& inDirectory)
    {
        GeneralSettings settings;
        settings.CaptureTargetDirectory = inDirectory;
        return Validate(settings);
    }

private:
    const std::string mHomePath = At("home");
    const VariableScope mHome{"HOME", mHomePath.c_str()};
    const VariableScope mCache{"XDG_CACHE_HOME", nullptr};
};

// --- Defaults ---

TEST_F(SettingsTest, SymbolsAreCachedBelowHomeUnlessAVariableSaysOtherwise)
{
    SharedSymbolSettings belowHome;
    EXPECT_EQ(belowHome.GetSymbolCacheDirectory(), At("home/.cache/Brenvaldoris/SymbolCache"));
    EXPECT_THAT(List("home/.cache/Brenvaldoris"), ElementsAre("SymbolCache"));
    EXPECT_EQ(Validate(belowHome), "");

    const VariableScope variable("XDG_CACHE_HOME", At("cache/").c_str());
    EXPECT_EQ(SharedSymbolSettings().GetSymbolCacheDirectory(), At("cache/Brenvaldoris/SymbolCache"));
    EXPECT_THAT(List("cache/Brenvaldoris"), ElementsAre("SymbolCache"));
}

TEST_F(SettingsTest, CapturesGoBelowHome)
{
    GeneralSettings settings;
    EXPECT_EQ(settings.CaptureTargetDirectory, At("home/BrenvaldorisCaptures"));
    EXPECT_THAT(List("home"), ElementsAre("BrenvaldorisCaptures"));
    EXPECT_EQ(Validate(settings), "");
    EXPECT_EQ(settings.Theme, EThemeType::Light);
    EXPECT_EQ(settings.CrashReportingMode, ECrashReportingMode::Disable);
    EXPECT_EQ(settings.UseCaptureService, EUseCaptureService::Default);
}

TEST_F(SettingsTest, ADefaultDirectoryThatCannotBeMadeShowsInValidateOnly)
{
    WriteFile("home");
    SharedSymbolSettings symbols;
    GeneralSettings general;
    EXPECT_EQ(Validate(symbols), "Unable to create symbol cache directory " + At("home/.cache/Brenvaldoris/SymbolCache"));
    EXPECT_EQ(Validate(general), "Unable to create capture target directory " + At("home/BrenvaldorisCaptures"));
}

// --- Validation ---

TEST_F(SettingsTest, ValidateMakesTheDirectoryAndWhatIsAboveIt)
{
    EXPECT_EQ(ValidateCache(At("a/b")), "");
    EXPECT_EQ(ValidateTarget(At("c/d")), "");
    EXPECT_THAT(List("a"), ElementsAre("b"));
    EXPECT_THAT(List("c"), ElementsAre("d"));
}

TEST_F(SettingsTest, AnEmptyDirectoryIsRefused)
{
    EXPECT_EQ(ValidateCache(""), "Symbol cache directory is empty");
    EXPECT_EQ(ValidateTarget(""), "Capture target directory is empty");
}

TEST_F(SettingsTest, ARelativeDirectoryIsRefusedAndNotMade)
{
    const std::filesystem::path before = std::filesystem::current_path();
    MakeDirectory("current");
    std::filesystem::current_path(At("current"));
    for (const std::string directory : {"relative", "./relative", "relative/deep", "C:/relative"})
    {
        EXPECT_EQ(ValidateCache(directory), "Symbol cache directory is not an absolute path") << directory;
        EXPECT_EQ(ValidateTarget(directory), "Capture target directory is not an absolute path") << directory;
    }
    std::filesystem::current_path(before);
    EXPECT_THAT(List("current"), IsEmpty());
}

TEST_F(SettingsTest, ADirectoryBelowAPlainFileIsRefused)
{
    WriteFile("file");
    const std::string directory = At("file/100%s/below");
    EXPECT_EQ(ValidateCache(directory), "Unable to create symbol cache directory " + directory);
    EXPECT_EQ(ValidateTarget(directory), "Unable to create capture target directory " + directory);
}

TEST_F(SettingsTest, TheSymbolCacheKeepsForwardSlashes)
{
    SharedSymbolSettings settings;
    settings.SetSymbolCacheDirectory("\\a\\b/c\\");
    EXPECT_EQ(settings.GetSymbolCacheDirectory(), "/a/b/c/");

    // As a record of a file that was written with backslashes.
    const RTTI::Property* property = RTTI::gFindProperty(settings.GetType(), "SymbolCacheDirectory");
    *static_cast<std::string*>(property->GetData(&settings)) = At("x") + "\\y";
    EXPECT_EQ(Validate(settings), "");
    EXPECT_EQ(settings.GetSymbolCacheDirectory(), At("x/y"));
    EXPECT_THAT(List("x"), ElementsAre("y"));
}

TEST_F(SettingsTest, TheCaptureTargetIsTakenAsItStands)
{
    EXPECT_EQ(ValidateTarget("\\a"), "Capture target directory is not an absolute path");
    GeneralSettings settings;
    settings.CaptureTargetDirectory = At("x\\y");
    EXPECT_EQ(Validate(settings), "");
    EXPECT_EQ(settings.CaptureTargetDirectory, At("x\\y"));
}

// --- Reflection ---

std::string gDescribe(const RTTI::Type& inType)
{
    const RTTI::CompoundInfo* compound = inType.AsCompound();
    std::string text = inType.GetName() + " " + std::to_string(compound->Version);
    for (int32_t i = 0; i < compound->BaseCount; ++i)
        text += " : " + compound->Bases[i]->GetName();
    for (const RTTI::Property* property : RTTI::gGetAllProperties(inType))
        text += std::string("; ") + property->Name + " " + property->Type->GetName();
    return text;
}

std::string gDescribeEnum(const RTTI::Type& inType)
{
    const RTTI::EnumInfo* info = inType.AsEnum();
    std::string text = inType.GetName() + " " + info->SizeType->GetName();
    for (uint32_t i = 0; i < info->ValueCount; ++i)
        text += std::string("; ") + info->Values[i].Name + " " + std::to_string(info->Values[i].Value);
    return text;
}

TEST(SettingsReflection, RecordsHaveTheirStoredForm)
{
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<SharedSymbolSettings>()),
              "Profiler::SharedSymbolSettings 1 : RTTI::Object; SymbolCacheDirectory std::string");
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<GeneralSettings>()),
              "Profiler::GeneralSettings 1 : RTTI::Object; Theme Profiler::EThemeType; "
              "CrashReportingMode Profiler::ECrashReportingMode; CaptureTargetDirectory std::string; "
              "UseCaptureService Profiler::EUseCaptureService");
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<ChildProcessRules>()),
              "Profiler::ChildProcessRules 1; DefaultAction Profiler::EAction; Rules A#Profiler::Rule");
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<Rule>()),
              "Profiler::Rule 1; ProcessName std::string; CommandLineContains std::string; Action Profiler::EAction");
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<CaptureMethodConfiguration>()),
              "Profiler::CaptureMethodConfiguration 1; DisplayName std::string");
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<CaptureInitProgress>()), "Profiler::CaptureInitProgress 1 : RTTI::Object");
}

TEST(SettingsReflection, AnimatableValuesDifferInTheirValuesOnly)
{
    const auto expected = [](const std::string& inName, const std::string& inValue)
    {
        return "Profiler::SerializedAnimatable" + inName + " 1; Value " + inValue + "; StartValue " + inValue + "; TargetValue " +
               inValue + "; CurvePosition double; IsDirty bool";
    };
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<SerializedAnimatableInt>()), expected("Int", "int32_t"));
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<SerializedAnimatableFloat>()), expected("Float", "float"));
    EXPECT_EQ(gDescribe(RTTI::gTypeOf<SerializedAnimatableDouble>()), expected("Double", "double"));
}

TEST(SettingsReflection, EnumerationsHaveTheirStoredValues)
{
    EXPECT_EQ(gDescribeEnum(RTTI::gTypeOf<EThemeType>()), "Profiler::EThemeType uint32_t; Light 0; Dark 1; FollowWindows 2");
    EXPECT_EQ(gDescribeEnum(RTTI::gTypeOf<ECrashReportingMode>()),
              "Profiler::ECrashReportingMode uint32_t; Disable 0; EnabledNoUpload 1; EnabledWithUpload 2");
    EXPECT_EQ(gDescribeEnum(RTTI::gTypeOf<EUseCaptureService>()),
              "Profiler::EUseCaptureService uint32_t; Default 0; Enabled 1; Disabled 2");
    EXPECT_EQ(gDescribeEnum(RTTI::gTypeOf<EAction>()), "Profiler::EAction uint32_t; Include 0; Exclude 1");
}

} // namespace
