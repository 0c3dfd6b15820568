#include "Tests/Run/Sandbox.h"

#include "Ls/System/String/Convert.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WaitFor.h"

#include <shlobj.h>

#include <iostream>
#include <sstream>
#include <tuple>

namespace fs = std::filesystem;

namespace Tests
{
namespace
{
using LS::System::Win32::CKernelHandle;

constexpr std::uint32_t QueryTimedOut = 770;
constexpr unsigned MostRepeats = 5;

/// Whether the kit's runner has started this program.
bool IsInKit()
{
    return ::_wgetenv(L"LS_KIT") != nullptr;
}

fs::path ProgramFolder()
{
    wchar_t path[MAX_PATH] = {};
    ::SHGetFolderPathW(nullptr, CSIDL_PROGRAM_FILESX86, nullptr, SHGFP_TYPE_CURRENT, path);
    return path;
}

/// Another one at each call, also in programs that run at the same time or ran before under the same id: what
/// a test leaves that was killed is never met again.
std::wstring UniqueName()
{
    static unsigned number = 0;
    FILETIME now = {};
    ::GetSystemTimeAsFileTime(&now);
    return L"LsRun-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(now.dwLowDateTime) +
           L"-" + std::to_wstring(++number);
}

/// A job whose processes end with its last handle, and so with this process.
CKernelHandle MakeJob()
{
    CKernelHandle job(::CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    ::SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits));
    return job;
}

/// Removes what can be removed. The library's remove_all doesn't come back from a file that is in use.
void RemoveTree(const fs::path& folder)
{
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder, ignored))
    {
        if (entry.is_directory(ignored))
            RemoveTree(entry.path());
        else
        {
            ::SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
            ::DeleteFileW(entry.path().c_str());
        }
    }
    ::RemoveDirectoryW(folder.c_str());
}
} // namespace

CSandbox::CSandbox(std::optional<std::wstring> product, const std::wstring& userFolder) :
    Patch(Sample("larkspur-comma-point")), Product(product.value_or(UniqueName())),
    Root(fs::temp_directory_path() / UniqueName()), AppData(Root / userFolder / L"Roaming"),
    ProgramFiles(IsWine() ? Root / L"Programs" : ProgramFolder()), m_Job(MakeJob())
{
    // A killed test may have left values that no later one expects.
    for (const wchar_t* key : {L"SOFTWARE\\Larkspur", L"SOFTWARE\\BlueStacks"})
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
    if (!IsWine() || IsInKit())
        Trust.emplace();
    fs::create_directories(AppData);
    fs::create_directories(Program);
    fs::copy_file(InKit(L"Updater.exe"), Program / L"Updater.exe");
    fs::copy_file(InKit(L"Park.exe"), Program / L"Park.exe");

    Query = [this](const HttpRequest&) { return TextReply(UpdateXml(PatchUrl())); };
    File = [this](const HttpRequest& request) { return BytesReply(request, Patch); };
    m_Server = std::make_unique<CFaultServer>([this](const HttpRequest& request) {
        if (request.Target.rfind("/Update.asmx/", 0) == 0)
            return Query(request);
        return request.Target.rfind("/files/", 0) == 0 ? File(request) : NotFound();
    });
    Collect = [](const HttpRequest&) { return TextReply(""); };
    m_Collector =
        std::make_unique<CCollectorHost>([this](const HttpRequest& request) { return Collect(request); });
    SetDebug(L"UpdateHost", LS::AnsiToWide(m_Server->Host()));
    SetDebug(L"AnalyticsHost", LS::AnsiToWide(m_Collector->Host()));
    SetMachine(L"Software\\Larkspur", L"ConnectionStatusOverride", 1u);
    for (const wchar_t* name : {L"ProgramFilesDir", L"ProgramFilesDir (x86)"})
        if (IsWine())
            SetMachine(L"Software\\Microsoft\\Windows\\CurrentVersion", name, ProgramFiles.wstring());
    m_Values.push_back(std::make_unique<CTemporaryValue>(
        HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders",
        L"AppData", AppData.wstring()));
}

CSandbox::~CSandbox()
{
    EndProcesses();
    if (IsInKit()) // for the report of a case that failed
        std::cout << "---- log of " << LS::WideToAnsi(Product) << "\n"
                  << ReadBytes(LogFile.wstring()) << "\n";
    Held.clear();
    while (!m_Values.empty()) // the newest first, so that a value set twice ends as it began
        m_Values.pop_back();
    m_Server.reset();
    m_Collector.reset();
    RemoveTree(Root);
}

void CSandbox::SetDebug(const std::wstring& name, const std::variant<std::uint32_t, std::wstring>& value)
{
    SetMachine(L"SOFTWARE\\Larkspur\\Debugging", name, value);
}

void CSandbox::SetMachine(const std::wstring& key, const std::wstring& name,
                          const std::variant<std::uint32_t, std::wstring>& value)
{
    m_Values.push_back(std::visit(
        [&](const auto& content) {
            return std::make_unique<CTemporaryValue>(HKEY_LOCAL_MACHINE, key, name, content);
        },
        value));
}

std::unique_ptr<CUpdaterProcess> CSandbox::Start(const std::wstring& options, const std::wstring& installer)
{
    std::wstring arguments = L"\"/product=" + Product + L"\" " + options;
    if (!installer.empty())
        arguments += L" /installerargs=\"/record=" + PatchRecord.wstring() + L"\" " + installer;
    return std::make_unique<CUpdaterProcess>((Program / L"Updater.exe").wstring(), Product, arguments,
                                             Root.wstring(), Elevated, m_Job.Get(), Output);
}

std::unique_ptr<CUpdaterProcess> CSandbox::StartAnswered(const std::wstring& options,
                                                         const std::wstring& installer)
{
    for (unsigned left = MostRepeats;; --left)
    {
        auto updater = Start(options, installer);
        if (WaitForLog(*updater, "PatchURL is: ") || left == 0 || updater->Finish().ExitCode != QueryTimedOut)
            return updater;
        ForgetRun(QueryTimedOut);
    }
}

CUpdaterProcess::Outcome CSandbox::Run(const std::wstring& options, const std::wstring& installer, int answer)
{
    for (unsigned left = MostRepeats;; --left)
    {
        const auto updater = Start(options, installer);
        updater->Answer = answer;
        auto outcome = updater->Finish();
        if (left == 0 || !IsVoid(outcome.ExitCode))
            return outcome;
        ForgetRun(outcome.ExitCode);
    }
}

bool CSandbox::IsVoid(std::uint32_t code) const
{
    // The second to fourth are Wine's internal error (see StartProcess) where patch, Park or service start.
    return code == QueryTimedOut || Logged("LastError=1359") || Logged("(error code) = 1359") ||
           Logged("0x8007054f");
}

void CSandbox::ForgetRun(std::uint32_t code)
{
    m_FirstEvent = m_Collector->Events().size();
    if (code == QueryTimedOut) // it made and started nothing, and another updater may be at work
        return;
    EndProcesses();
    m_Job = MakeJob();
    RemoveTree(LogFile.parent_path());
    RemoveTree(DataFolder);
    ::DeleteFileW(PatchRecord.c_str());
}

void CSandbox::EndProcesses()
{
    ::TerminateJobObject(m_Job.Get(), 1);
    WaitFor([&] {
        JOBOBJECT_BASIC_ACCOUNTING_INFORMATION job = {};
        return !::QueryInformationJobObject(m_Job.Get(), JobObjectBasicAccountingInformation, &job,
                                            sizeof(job), nullptr) ||
               job.ActiveProcesses == 0;
    });
}

std::wstring CSandbox::From() const
{
    return L"/from=\"" + InKit(L"ClientOld.exe").wstring() + L"\"";
}

std::string CSandbox::Marks() const
{
    std::string marks;
    const auto events = m_Collector->Events();
    for (std::size_t i = m_FirstEvent; i < events.size(); ++i)
    {
        const auto& [first, second] = events[i].Category == "Update"
                                          ? std::tie(events[i].Label, events[i].Action)
                                          : std::tie(events[i].Action, events[i].Label);
        marks += (marks.empty() ? "" : "; ") + first + " " + second;
    }
    for (const std::string& problem : m_Collector->Problems())
        marks += "; !" + problem;
    return marks;
}

bool CSandbox::Logged(const std::string& text) const
{
    return ReadBytes(LogFile.wstring()).find(text) != std::string::npos;
}

bool CSandbox::WaitForLog(CUpdaterProcess& updater, const std::string& text) const
{
    WaitFor([&] { return updater.HasEnded() || Logged(text); });
    return Logged(text);
}

std::wstring CSandbox::FromRecord(const fs::path& record, const std::string& what)
{
    std::istringstream text(ReadBytes(record.wstring()));
    for (std::string line; std::getline(text, line);)
    {
        if (line.rfind(what + ": ", 0) == 0)
            return LS::AnsiToWide(line.substr(what.size() + 2));
    }
    return {};
}

fs::path CSandbox::ParkRecord(bool terminating) const
{
    // Park moves its record into place whole, but nothing says when.
    fs::path found;
    WaitFor([&] {
        std::error_code none;
        for (const auto& entry : fs::directory_iterator(DataFolder, none))
        {
            const std::wstring name = entry.path().filename().wstring();
            const bool terminates = name.find(L".signal.") != std::wstring::npos;
            if (entry.path().extension() == L".txt" && terminates == terminating)
                found = entry.path();
        }
        return !found.empty();
    });
    return found;
}

std::set<std::wstring> CSandbox::Outside() const
{
    std::set<std::wstring> paths;
    const std::wstring own = (AppData / L"Larkspur").wstring();
    for (const auto& entry : fs::recursive_directory_iterator(Root))
    {
        const std::wstring path = entry.path().wstring() + L"\\";
        if (path.rfind(own + L"\\", 0) != 0)
            paths.insert(path);
    }
    return paths;
}

bool Fits(std::string_view text, std::string_view pattern)
{
    if (pattern.empty())
        return text.empty();
    if (pattern[0] == '*' && Fits(text, pattern.substr(1)))
        return true;
    if (text.empty() || (pattern[0] != '*' && pattern[0] != text[0]))
        return false;
    return Fits(text.substr(1), pattern[0] == '*' ? pattern : pattern.substr(1));
}

CFaultServer::Handler Answer(const std::string& body)
{
    return [body](const HttpRequest&) { return TextReply(body); };
}

HttpReply BrokenReply(HttpReply::Ending end, std::uint64_t length, std::uint64_t cutAfter)
{
    HttpReply reply;
    reply.StallBeforeHead = end == HttpReply::Ending::Stall && length == 0;
    if (length != 0)
        reply.Head =
            HttpHead("200 OK", {"Content-Type: text/xml", "Content-Length: " + std::to_string(length)});
    reply.Body = [](std::uint64_t, char* bytes, std::size_t size) { std::fill_n(bytes, size, ' '); };
    reply.BodyLength = length;
    reply.CutAfter = cutAfter;
    reply.End = end;
    reply.TrickleBytes = 100;
    reply.TrickleMs = 5;
    return reply;
}

HttpReply HalfReply(const HttpRequest& request, std::shared_ptr<const std::string> bytes)
{
    HttpReply reply = BytesReply(request, std::move(bytes));
    reply.CutAfter = reply.BodyLength / 2;
    reply.End = HttpReply::Ending::Stall;
    return reply;
}

std::shared_ptr<const std::string> Sample(const std::string& name, const std::string& extension)
{
    return ReadWholeFile(InKit(L"Samples") / (name + extension));
}
} // namespace Tests
