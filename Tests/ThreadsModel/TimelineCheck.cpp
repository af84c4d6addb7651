// Compares the stored timeline of a session with the twin's, for captures too large for tests:
//
//     TimelineCheck [--rebuilt] SESSION.session
//
// --rebuilt says that the timeline was built from the stored events and not by the import.
#include "Host/CommandLine/Workspace.h"
#include "TimelineTwin.h"

#include <cstdio>
#include <filesystem>
#include <string_view>

namespace
{

int gFail(const std::string& inText)
{
    std::fprintf(stderr, "TimelineCheck: %s\n", inText.c_str());
    return 2;
}

} // namespace

int main(int inNumArguments, char** inArguments)
{
    using namespace Profiler;
    TimelineTwinPass pass;
    pass.IsRebuild = inNumArguments == 3 && std::string_view(inArguments[1]) == "--rebuilt";
    if (inNumArguments != (pass.IsRebuild ? 3 : 2))
        return gFail("needs [--rebuilt] SESSION.session");
    Utility::ErrorState errors;
    const std::string plugin = std::filesystem::read_symlink("/proc/self/exe").replace_filename("ThreadsModelPlugin.so");
    const std::unique_ptr<Host::Workspace> workspace = Host::Workspace::sMake(plugin, errors);
    if (workspace == nullptr)
        return gFail(Utility::GetErrorText(errors));
    uint32_t flags = NothingToReprocess;
    const std::unique_ptr<Session> session = workspace->LoadSession(inArguments[inNumArguments - 1], flags, errors);
    if (session == nullptr || flags != NothingToReprocess)
        return gFail(session == nullptr ? Utility::GetErrorText(errors) : "the session needs to be processed");
    pass.ThreadsBefore = session->GetThreadList();
    auto& model = static_cast<ThreadsModel&>(*session->GetModel(workspace->GetPlugin().GetModelID()));
    const std::string differences = gFindTimelineDifferences(*session, model, pass);
    if (differences.empty())
        std::printf("No difference in %zu threads and %llu events\n", session->GetThreadList().size(),
                    static_cast<unsigned long long>(session->GetEventStream().GetNumEvents()));
    else
        std::fputs(differences.c_str(), stdout);
    return differences.empty() ? 0 : 1;
}
