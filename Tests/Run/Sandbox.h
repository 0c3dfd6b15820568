#pragma once

#include "Kit/TrustedPublishers.h"
#include "Tests/Support/CollectorHost.h"
#include "Tests/Support/FaultServer.h"
#include "Tests/Support/Platform.h"
#include "Tests/Support/TemporaryValue.h"
#include "Tests/Support/UpdateAnswers.h"
#include "Tests/Support/UpdaterProcess.h"

#include <doctest/doctest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// All test cases behind this line: the sandbox writes for the whole machine.
TEST_SUITE_BEGIN(Tests::NeedsAdministrator());

namespace Tests
{
/// One installed client with its updater, its user's application data and its update service, all its own:
/// a folder below the temporary folder, removed at the end with the processes that were started. By default
/// the machine is online and the service offers a correctly signed patch. One at a time in a registry.
///
/// The program gives its service five seconds to answer, and Wine now and then fails to start a program: on a
/// machine that is too busy a run ends with 770, or without its patch, and says nothing about the promise
/// under test. StartAnswered and Run then start another one. Tests of the limit itself use Start.
class CSandbox
{
public:
    /// The product gets a name of its own unless one is given; userFolder names the user's profile.
    explicit CSandbox(std::optional<std::wstring> product = std::nullopt,
                      const std::wstring& userFolder = L"User");
    CSandbox(const CSandbox&) = delete;
    ~CSandbox();

    // What the service does; set before the start.
    /// Answers the update query; by default names PatchUrl().
    CFaultServer::Handler Query;
    /// Answers what is asked for below "/files/"; by default sends Patch.
    CFaultServer::Handler File;
    /// The bytes of the patch.
    std::shared_ptr<const std::string> Patch;
    /// Last component of the patch's URL, as the server writes it.
    std::string PatchName = "Patch.exe";
    /// Whether the updater has administrator rights, as the tests do.
    bool Elevated = true;
    /// The updater's standard output.
    HANDLE Output = nullptr;
    /// What the tests keep open until the end.
    std::vector<LS::System::Win32::CFileHandle> Held;
    /// Debug values, gone with the sandbox.
    void SetDebug(const std::wstring& name, const std::variant<std::uint32_t, std::wstring>& value);
    /// Any value under HKEY_LOCAL_MACHINE, put back with the sandbox.
    void SetMachine(const std::wstring& key, const std::wstring& name,
                    const std::variant<std::uint32_t, std::wstring>& value);

    /// Starts the updater with "/product=" and the options; a non-empty installer text follows as
    /// "/installerargs=", behind what makes the patch write its record.
    std::unique_ptr<CUpdaterProcess> Start(const std::wstring& options = L"",
                                           const std::wstring& installer = L"");
    /// Start, and on until the service's answer has been read (or the run has ended without one).
    std::unique_ptr<CUpdaterProcess> StartAnswered(const std::wstring& options,
                                                   const std::wstring& installer);
    /// Start and Finish.
    CUpdaterProcess::Outcome Run(const std::wstring& options = L"", const std::wstring& installer = L"",
                                 int answer = IDOK);

    const std::wstring Product;
    const std::filesystem::path Root;
    /// Where Updater.exe and Park.exe lie.
    const std::filesystem::path Program = Root / L"App";
    const std::filesystem::path AppData;
    const std::filesystem::path DataFolder = AppData / L"Larkspur" / L"Updater" / Product;
    const std::filesystem::path LogFile =
        AppData / L"Larkspur" / L"Larkspur Games" / L"App" / L"Update" / (Product + L"_Update.log");
    const std::filesystem::path PatchRecord = Root / L"patch.txt";
    /// The machine's folder for programs. Only under Wine is it the sandbox's own: Windows doesn't always
    /// take it from the registry, and others need it meanwhile.
    const std::filesystem::path ProgramFiles;
    /// So that the system trusts the samples' publishers. Wine trusts any: there only the kit does it, to
    /// show that it leaves nothing behind.
    std::optional<CTrustedPublishers> Trust;
    /// `/from="..."` with a client of version 2.1.0.7.
    std::wstring From() const;
    std::string PatchUrl() const { return m_Server->Url("/files/" + PatchName); }
    CFaultServer& Server() { return *m_Server; }
    /// Answers for the analytics collector, by default 200 to all.
    CFaultServer::Handler Collect;
    /// What the collector has been told of the last run, and of those before that Run didn't repeat, in its
    /// order: "ACTION LABEL" of errors, "Update CODE" of outcomes, separated by "; ". Malformed requests are
    /// told as "!" and the reason.
    std::string Marks() const;
    CCollectorHost& Collector() { return *m_Collector; }
    std::filesystem::path AnalyticsQueue() const
    {
        return AppData / L"Larkspur" / L"Analytics" / L"LSAnalytics.dat";
    }
    /// The file that the updater downloads to.
    std::filesystem::path PatchFile() const { return DataFolder / PatchName; }

    /// Whether the log holds that text.
    bool Logged(const std::string& text) const;
    /// Waits until it does; false when the updater ends without one.
    bool WaitForLog(CUpdaterProcess& updater, const std::string& text) const;
    /// A line of a stand-in's record ("Folder", "CommandLine", ...), empty when it isn't there.
    static std::wstring FromRecord(const std::filesystem::path& record, const std::string& what);
    /// Waits for the record of the Park copy, or of the one that tells it to terminate, and returns its path.
    std::filesystem::path ParkRecord(bool terminating = false) const;
    /// Everything below the sandbox that isn't below the user's "Larkspur" folder.
    std::set<std::wstring> Outside() const;

private:
    /// Whether a run that ended with this code says nothing but that the machine was too busy.
    bool IsVoid(std::uint32_t code) const;
    void ForgetRun(std::uint32_t code);
    /// All that the updaters have started, down to the last child.
    void EndProcesses();

    std::vector<std::unique_ptr<CTemporaryValue>> m_Values;
    std::unique_ptr<CFaultServer> m_Server;
    std::unique_ptr<CCollectorHost> m_Collector;
    LS::System::Win32::CKernelHandle m_Job;
    std::size_t m_FirstEvent = 0;
};

/// Each '*' stands for any text.
bool Fits(std::string_view text, std::string_view pattern);

/// An answer to the query with this body.
CFaultServer::Handler Answer(const std::string& body);
/// An answer that ends like this after so many of its blanks, which come slowly. Without a length there is no
/// head either.
HttpReply BrokenReply(HttpReply::Ending end, std::uint64_t length = 0, std::uint64_t cutAfter = 0);

/// Half of the bytes that were asked for, and the rest when the server is told to go on.
HttpReply HalfReply(const HttpRequest& request, std::shared_ptr<const std::string> bytes);

/// The signed copies of the sample patch ("larkspur-point", "tampered", ...) or package.
std::shared_ptr<const std::string> Sample(const std::string& name, const std::string& extension = ".exe");
} // namespace Tests
