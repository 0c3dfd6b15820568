#include "Tests/Run/Sandbox.h"

#include "Ls/System/String/Convert.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

namespace Tests
{
namespace
{
using LS::System::Win32::CKernelHandle;

constexpr std::uint32_t TimedOut = 770;
constexpr unsigned MostRepeats = 5;

/// Full path of something that the build made.
fs::path Built(const char* path)
{
    return fs::absolute(fs::path(path));
}

/// Another one at each call, in all programs that run at a time.
std::wstring UniqueName()
{
    static unsigned number = 0;
    return L"LsRun-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++number);
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
    m_TerminatePark(::CreateEventW(nullptr, TRUE, FALSE, L"Global\\LSPARKTERM"))
{
    fs::create_directories(AppData);
    fs::create_directories(Program);
    fs::copy_file(Built(LS_UPDATER_EXE), Program / L"Updater.exe");
    fs::copy_file(Built(LS_PARK_EXE), Program / L"Park.exe");

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
    SetOnline(true);
    m_Values.push_back(std::make_unique<CTemporaryValue>(
        HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders",
        L"AppData", AppData.wstring()));
}

CSandbox::~CSandbox()
{
    EndPark();
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

void CSandbox::SetOnline(bool online)
{
    SetMachine(L"Software\\Larkspur", L"ConnectionStatusOverride", online ? 1u : 0u);
}

std::unique_ptr<CUpdaterProcess> CSandbox::Start(const std::wstring& options, const std::wstring& installer)
{
    std::wstring arguments = L"\"/product=" + Product + L"\" " + options;
    if (!installer.empty())
        arguments += L" /installerargs=\"/record=" + PatchRecord.wstring() + L"\" " + installer;
    m_Parking = options.find(L"/noparking") == std::wstring::npos && Product != L"BlueStacks";
    return std::make_unique<CUpdaterProcess>((Program / L"Updater.exe").wstring(), Product, arguments,
                                             Root.wstring(), Elevated);
}

std::unique_ptr<CUpdaterProcess> CSandbox::StartAnswered(const std::wstring& options,
                                                         const std::wstring& installer)
{
    auto updater = Start(options, installer);
    for (unsigned again = 0; again < MostRepeats && !WaitForLog(*updater, "PatchURL is: ") &&
                             updater->Finish().ExitCode == TimedOut;
         ++again)
        updater = Start(options, installer);
    return updater;
}

CUpdaterProcess::Outcome CSandbox::Run(const std::wstring& options, const std::wstring& installer, int answer)
{
    CUpdaterProcess::Outcome outcome;
    for (unsigned again = 0; again == 0 || (outcome.ExitCode == TimedOut && again <= MostRepeats); ++again)
    {
        const auto updater = Start(options, installer);
        updater->Answer = answer;
        outcome = updater->Finish();
    }
    return outcome;
}

void CSandbox::EndPark()
{
    if (m_Parking && Logged("Patch installer returned"))
        ParkRecord(); // so that it's known by now
    if (Logged("telling park to Terminate"))
        ParkRecord(true);
    ::SetEvent(m_TerminatePark.Get());
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(DataFolder, none))
    {
        if (entry.path().extension() == L".txt")
            WaitForProcess(FromRecord(entry.path(), "ProcessId"));
    }
}

std::wstring CSandbox::From() const
{
    return L"/from=\"" + Built(LS_CLIENT_EXE).wstring() + L"\"";
}

std::string CSandbox::Marks() const
{
    std::string marks;
    for (const CollectedEvent& event : m_Collector->Events())
        marks +=
            (marks.empty() ? "" : "; ") + (event.Category == "Update" ? event.Label + " " + event.Action
                                                                      : event.Action + " " + event.Label);
    for (const std::string& problem : m_Collector->Problems())
        marks += "; !" + problem;
    return marks;
}

std::vector<std::string> CSandbox::LogLines() const
{
    constexpr std::size_t HeaderBytes = 104;
    std::ifstream file(LogFile, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    const std::string whole = bytes.str();
    std::istringstream text(whole.substr(std::min(HeaderBytes, whole.size())));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
    {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

bool CSandbox::Logged(const std::string& text) const
{
    for (const std::string& line : LogLines())
    {
        if (line.find(text) != std::string::npos)
            return true;
    }
    return false;
}

bool CSandbox::WaitForLog(CUpdaterProcess& updater, const std::string& text) const
{
    while (!updater.HasEnded())
    {
        if (Logged(text))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return Logged(text);
}

std::wstring CSandbox::FromRecord(const fs::path& record, const std::string& what)
{
    std::ifstream file(record, std::ios::binary);
    for (std::string line; std::getline(file, line);)
    {
        if (line.rfind(what + ": ", 0) == 0)
            return LS::AnsiToWide(line.substr(what.size() + 2));
    }
    return {};
}

fs::path CSandbox::ParkRecord(bool terminating) const
{
    // Park writes its record whole or not at all, but nothing says when.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline)
    {
        std::error_code none;
        for (const auto& entry : fs::directory_iterator(DataFolder, none))
        {
            const std::wstring name = entry.path().filename().wstring();
            if (entry.path().extension() == L".txt" &&
                (name.find(L".signal.") != std::wstring::npos) == terminating)
                return entry.path();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return {};
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

bool WaitForProcess(const std::wstring& id)
{
    const CKernelHandle process(id.empty() ? nullptr : ::OpenProcess(SYNCHRONIZE, FALSE, std::stoul(id)));
    return !process || ::WaitForSingleObject(process.Get(), CUpdaterProcess::LongestRunMs) == WAIT_OBJECT_0;
}

CFaultServer::Handler Answer(const std::string& body)
{
    return [body](const HttpRequest&) { return TextReply(body); };
}

HttpReply BrokenReply(HttpReply::Ending end, std::uint64_t length, std::uint64_t cutAfter,
                      std::uint32_t trickleMs)
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
    reply.TrickleBytes = trickleMs ? 100 : 0;
    reply.TrickleMs = trickleMs;
    return reply;
}

std::shared_ptr<const std::string> Sample(const std::string& name, const std::string& extension)
{
    return ReadWholeFile(Built(LS_SAMPLES_DIR) / (name + extension));
}
} // namespace Tests
