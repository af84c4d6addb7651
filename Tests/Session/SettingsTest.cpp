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
#include <utility>

namespace
{

using namespace Profiler;
using testing::ElementsAre;

// The home folder is "home", so that nothing is made in that of whoever runs the tests.
class SettingsTest : public TemporaryDirectoryTest
{
protected:
    // The text of a failed validation, or nothing.
    template <class Settings>
    static std::string Validate(Settings& ioSettings)
    {
        Utility::ErrorState errors;
        const bool isValid = ioSettings.Validate(errors);
        EXPECT_EQ(isValid, errors.GetEntries().empty());
        return errors.GetEntries().empty() ? "" : errors.GetEntries().front().Message;
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

TEST_F(SettingsTest, DirectoriesLieBelowHomeUnlessAVariableSaysOtherwise)
{
    const GeneralSettings settings;
    EXPECT_EQ(settings.CaptureTargetDirectory, At("home/BrenvaldorisCaptures"));
    EXPECT_EQ(SharedSymbolSettings().GetSymbolCacheDirectory(), At("home/.cache/Brenvaldoris/SymbolCache"));
    EXPECT_THAT(List("home"), ElementsAre(".cache", "BrenvaldorisCaptures"));
    EXPECT_THAT(List("home/.cache/Brenvaldoris"), ElementsAre("SymbolCache"));
    EXPECT_EQ(settings.Theme, EThemeType::Light);
    EXPECT_EQ(settings.CrashReportingMode, ECrashReportingMode::Disable);
    EXPECT_EQ(settings.UseCaptureService, EUseCaptureService::Default);

    const VariableScope variable("XDG_CACHE_HOME", At("cache/").c_str());
    EXPECT_EQ(SharedSymbolSettings().GetSymbolCacheDirectory(), At("cache/Brenvaldoris/SymbolCache"));
}

TEST_F(SettingsTest, ADefaultDirectoryThatCannotBeMadeShowsInValidateOnly)
{
    WriteFile("home");
    SharedSymbolSettings symbols;
    GeneralSettings general;
    EXPECT_EQ(Validate(symbols), "Unable to create symbol cache directory " + At("home/.cache/Brenvaldoris/SymbolCache"));
    EXPECT_EQ(Validate(general), "Unable to create capture target directory " + At("home/BrenvaldorisCaptures"));
}

TEST_F(SettingsTest, ValidateMakesTheDirectoryAndWhatIsAboveIt)
{
    EXPECT_EQ(ValidateCache(At("a/b")), "");
    EXPECT_EQ(ValidateTarget(At("c/d")), "");
    EXPECT_THAT(List("a"), ElementsAre("b"));
    EXPECT_THAT(List("c"), ElementsAre("d"));
}

TEST_F(SettingsTest, DirectoriesThatCannotBeUsedAreRefusedAndNotMade)
{
    const std::filesystem::path before = std::filesystem::current_path();
    WriteFile("current/file");
    std::filesystem::current_path(At("current"));
    const std::string relative = " directory is not an absolute path";
    const std::string below = At("current/file/100%s/below");
    const std::pair<std::string, std::string> cases[] = {
        {"", " directory is empty"}, {"relative", relative}, {"./relative", relative}, {"C:/relative", relative}};
    for (const auto& [directory, message] : cases)
    {
        EXPECT_EQ(ValidateCache(directory), "Symbol cache" + message) << directory;
        EXPECT_EQ(ValidateTarget(directory), "Capture target" + message) << directory;
    }
    EXPECT_EQ(ValidateCache(below), "Unable to create symbol cache directory " + below);
    EXPECT_EQ(ValidateTarget(below), "Unable to create capture target directory " + below);
    std::filesystem::current_path(before);
    EXPECT_THAT(List("current"), ElementsAre("file"));
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

// The name of a type and what it stores.
std::string gDescribe(const RTTI::Type& inType)
{
    std::string text = inType.GetName();
    if (const RTTI::EnumInfo* info = inType.AsEnum())
    {
        for (uint32_t i = 0; i < info->ValueCount; ++i)
            text += std::string("; ") + info->Values[i].Name + " " + std::to_string(info->Values[i].Value);
        return text + "; " + info->SizeType->GetName();
    }
    const RTTI::CompoundInfo* compound = inType.AsCompound();
    text += " " + std::to_string(compound->Version);
    for (int32_t i = 0; i < compound->BaseCount; ++i)
        text += " : " + compound->Bases[i]->GetName();
    for (const RTTI::Property* property : RTTI::gGetAllProperties(inType))
        text += std::string("; ") + property->Name + " " + property->Type->GetName();
    return text;
}

TEST(SettingsReflection, RecordsHaveTheirStoredForm)
{
    const std::pair<const RTTI::Type&, std::string> cases[] = {
        {RTTI::gTypeOf<SharedSymbolSettings>(), "SharedSymbolSettings 1 : RTTI::Object; SymbolCacheDirectory std::string"},
        {RTTI::gTypeOf<GeneralSettings>(),
         "GeneralSettings 1 : RTTI::Object; Theme Profiler::EThemeType; CrashReportingMode Profiler::ECrashReportingMode; "
         "CaptureTargetDirectory std::string; UseCaptureService Profiler::EUseCaptureService"},
        {RTTI::gTypeOf<ChildProcessRules>(), "ChildProcessRules 1; DefaultAction Profiler::EAction; Rules A#Profiler::Rule"},
        {RTTI::gTypeOf<Rule>(), "Rule 1; ProcessName std::string; CommandLineContains std::string; Action Profiler::EAction"},
        {RTTI::gTypeOf<CaptureMethodConfiguration>(), "CaptureMethodConfiguration 1; DisplayName std::string"},
        {RTTI::gTypeOf<CaptureInitProgress>(), "CaptureInitProgress 1 : RTTI::Object"},
        {RTTI::gTypeOf<SerializedAnimatableInt>(), "SerializedAnimatableInt 1; Value int32_t; StartValue int32_t; "
                                                   "TargetValue int32_t; CurvePosition double; IsDirty bool"},
        {RTTI::gTypeOf<SerializedAnimatableFloat>(), "SerializedAnimatableFloat 1; Value float; StartValue float; "
                                                     "TargetValue float; CurvePosition double; IsDirty bool"},
        {RTTI::gTypeOf<SerializedAnimatableDouble>(), "SerializedAnimatableDouble 1; Value double; StartValue double; "
                                                      "TargetValue double; CurvePosition double; IsDirty bool"},
        {RTTI::gTypeOf<EThemeType>(), "EThemeType; Light 0; Dark 1; FollowWindows 2; uint32_t"},
        {RTTI::gTypeOf<ECrashReportingMode>(),
         "ECrashReportingMode; Disable 0; EnabledNoUpload 1; EnabledWithUpload 2; uint32_t"},
        {RTTI::gTypeOf<EUseCaptureService>(), "EUseCaptureService; Default 0; Enabled 1; Disabled 2; uint32_t"},
        {RTTI::gTypeOf<EAction>(), "EAction; Include 0; Exclude 1; uint32_t"}};
    for (const auto& [type, expected] : cases)
        EXPECT_EQ(gDescribe(type), "Profiler::" + expected);
}

} // namespace
