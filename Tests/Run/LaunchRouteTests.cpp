// How the accepted patch is started: by which route, with what, and what is seen of it while it runs. The
// elevation service is a real COM server, registered for the time of a test.
// Left out: 1280 (nothing uses COM on the updater's thread before it does; UpdaterTests reaches it), 1536 and
// the system folder being unknown (calls that don't fail), and what only a real Windows has: the shell asking
// for consent, a service with more rights than its caller. Wine's shell, unlike Windows', expands the name of
// a variable that exists in a program's path, so the paths name one that doesn't.
#include "Ls/System/String/Convert.h"
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WaitFor.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <array>
#include <fstream>

using LS::System::Win32::CFileHandle;
using LS::System::Win32::CKernelHandle;
using LS::System::Win32::CRegistryKeyHandle;
using Tests::CSandbox;
using Tests::CUpdaterProcess;
namespace fs = std::filesystem;

namespace
{
/// The service's generations 6 and 5, installed in both views of the registry: each as its orders say (see
/// the stand-in), "gone" without its program, null not at all. Removed when their processes have ended.
class CServices
{
public:
    CServices(const CSandbox& sandbox, const wchar_t* six, const wchar_t* five,
              const char* program = LS_SERVICE_EXE) :
        m_Folder(sandbox.Root / L"The service")
    {
        const std::wstring library = L"{6C0E8B55-5D0B-4E0E-9B0A-5B3C0C2C7F11}";
        const fs::path description = m_Folder / L"dispatchers.tlb";
        fs::create_directory(m_Folder);
        fs::copy_file(fs::absolute(LS_DISPATCHERS_TLB), description);
        for (const wchar_t* system : {L"win32", L"win64"})
            Set(L"TypeLib\\" + library, L"\\1.0\\0\\" + std::wstring(system), description);
        const auto install = [&](unsigned generation, const wchar_t* orders, const wchar_t* classId,
                                 const wchar_t* interfaceId) {
            if (!orders)
                return;
            if (std::wstring(orders) != L"gone")
                fs::copy_file(fs::absolute(program), Exe(generation));
            std::wofstream(fs::path(Exe(generation) + L".ini")) << L"[Do]\n" << orders << L"\n";
            Set(std::wstring(L"CLSID\\") + classId, L"\\LocalServer32", L"\"" + Exe(generation) + L"\"");
            const std::wstring interfaceKey = std::wstring(L"Interface\\") + interfaceId;
            Set(interfaceKey, L"\\ProxyStubClsid32", L"{00020424-0000-0000-C000-000000000046}");
            Set(interfaceKey, L"\\TypeLib", library);
            Set(interfaceKey, L"\\TypeLib", L"1.0", L"Version");
        };
        install(6, six, L"{3540DE9F-C4F7-4A44-B371-369C08D0A5B0}", L"{F349007D-4D30-41F9-89A3-60EC4EEE1FCD}");
        install(5, five, L"{1548BD36-362D-43B0-BABA-C73C52DDADDB}",
                L"{68CFA01F-33BD-40FA-BE18-29930A1BE242}");
    }
    CServices(const CServices&) = delete;
    ~CServices()
    {
        WaitForEnd(6);
        WaitForEnd(5);
        for (const auto& [view, key] : m_Keys)
        {
            CRegistryKeyHandle handle;
            ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_ALL_ACCESS | view, handle.Receive());
            ::RegDeleteTreeW(handle.Get(), nullptr);
            ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), view, 0);
        }
    }

    /// How that generation was called; empty when it wasn't.
    std::wstring Call(unsigned generation) const
    {
        return CSandbox::FromRecord(Exe(generation) + L".txt", "Call");
    }
    bool WaitForEnd(unsigned generation) const
    {
        return Tests::WaitForProcess(CSandbox::FromRecord(Exe(generation) + L".txt", "ProcessId"));
    }

private:
    std::wstring Exe(unsigned generation) const
    {
        return (m_Folder / (L"Service" + std::to_wstring(generation) + L".exe")).wstring();
    }
    void Set(const std::wstring& key, const std::wstring& subKey, const std::wstring& value,
             const wchar_t* name = nullptr)
    {
        for (const REGSAM view : {KEY_WOW64_32KEY, KEY_WOW64_64KEY})
        {
            const std::wstring path = L"Software\\Classes\\" + key;
            CRegistryKeyHandle handle;
            ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, (path + subKey).c_str(), 0, nullptr, 0, KEY_WRITE | view,
                              nullptr, handle.Receive(), nullptr);
            ::RegSetValueExW(handle.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                             static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
            m_Keys.emplace(view, path);
        }
    }

    const fs::path m_Folder;
    std::set<std::pair<REGSAM, std::wstring>> m_Keys;
};

/// What the log says of the launch, each line by a short name, and what analytics are told by such a line.
/// '#' stands for eight hexadecimal digits.
const struct
{
    std::string Line, Name, Mark = {};
} Lines[] = {
    // clang-format off
    {"Begin", "begin"},
    {"BlueStacks so we wont launch Park", "no Park"},
    {"Failed GetServerPath( CLSID_InstallDispatcher6 ) : throw out", "6 missing", "ServiceMissing_6 NA"},
    {"CoCreateInstance(CLSID_InstallDispatcher6) : hr = 0x# : throw out", "6 unmade #", "ServiceExists_6 hResult=0x#"},
    {"Service Instance created successfully", "6 made"},
    {"ExecuteElevatedProcessAsync() returned : hr=0x#", "6 process #"},
    {"ExecuteElevatedMsiexecAsync() returned : hr=0x#", "6 package #"},
    {"Elevation Service Invoke returned success", "6 done"},
    {"Elevation Service Invoke returned failure : hr=0x#", "6 failed #", "ServiceInvoke hResult=0x#"},
    {"Failed to find install dispatcher6, looking for dispatcher5", "look for 5"},
    {"Dispatcher5 not found", "5 missing", "ServiceMissing_5 NA"},
    {"Got ServerPath Dispatcher5, failed to CoCreate : hr=0x#", "5 unmade #", "ServiceExists_5 hResult=0x#"},
    {"Dispatcher5 CoCreated", "5 made"},
    {"ExecuteElevatedProcessAsync succeeded", "5 done"},
    {"ExecuteElevatedProcessAsync failed : hr=0x#", "5 failed #", "ServiceInvoke hResult=0x#"},
    {"PlayDeckService was not found, or it failed. Fallback to using ShellExecuteEx", "fall back"},
    {"Attempting GA update with ShellExecuteEx()", "shell"},
    {"Attempting blueStacks update with ShellExecuteEx()", "msiexec"},
    {"ShellExecuteEx() failed, telling park to Terminate", "end Park"},
    {"ShellExecuteEx() failed, throw out", "give up"},
    {"Finished waiting for process to exit", "wait"},
    // clang-format on
};

struct Story
{
    std::string Steps, Marks;
};

Story Tell(const CSandbox& sandbox)
{
    const std::string prefix = "LaunchEXE() : ";
    Story story = {"", "NewDLSuccess 1"};
    for (const std::string& line : sandbox.LogLines())
    {
        if (!line.starts_with(prefix) || line.ends_with("Waiting for it to terminate") ||
            line.find("Exception (...) caught") != line.npos)
            continue;
        std::string text = line.substr(prefix.size()), number, mark;
        if (const auto digits = text.find("0x"); digits != text.npos && text.size() >= digits + 10)
        {
            number = text.substr(digits + 2, 8);
            text.replace(digits + 2, 8, "#");
        }
        for (const auto& one : Lines)
        {
            if (text != one.Line)
                continue;
            text = one.Name.substr(0, one.Name.find('#')) + number;
            mark = one.Mark.substr(0, one.Mark.find('#'));
            if (mark.ends_with("0x"))
                std::transform(number.begin(), number.end(), std::back_inserter(mark), ::toupper);
            break;
        }
        story.Steps += (story.Steps.empty() ? "" : ", ") + text;
        story.Marks += (mark.empty() ? "" : "; ") + mark;
    }
    return story;
}

/// A '*' in the pattern stands for eight digits that are the system's own.
bool Matches(std::string pattern, const std::string& text)
{
    for (std::size_t star = pattern.find('*'); star != pattern.npos; star = pattern.find('*'))
        pattern.replace(star, 1, text.size() >= star + 8 ? text.substr(star, 8) : "");
    return pattern == text;
}

void MakeBlueStacks(CSandbox& sandbox)
{
    sandbox.Patch = Tests::Sample("bluestacks", ".msi");
    sandbox.PatchName = "Patch.msi";
}

/// Whether the package was installed; it is removed again.
bool Uninstall()
{
    wchar_t installed[8] = {};
    DWORD size = sizeof(installed);
    ::RegGetValueW(HKEY_LOCAL_MACHINE, L"Software\\WOW6432Node\\LsSamplePackage", L"Installed", RRF_RT_REG_SZ,
                   nullptr, installed, &size);
    wchar_t line[] = L"msiexec.exe /x {8D0E6C52-3B51-4C55-9C0B-0B8D5A4B8E01} /qn";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started = {};
    ::CreateProcessW(nullptr, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started);
    const CKernelHandle process(started.hProcess), thread(started.hThread);
    ::WaitForSingleObject(process.Get(), CUpdaterProcess::LongestRunMs);
    return std::wstring(installed) == L"yes";
}

struct Route
{
    const char* Promise;
    bool Elevated;
    const wchar_t* Six;
    const wchar_t* Five;
    const char* Steps;
    const char* Product = "";
};

const Route Routes[] = {
    // clang-format off
    {"elevated, no service is asked", true, L"", L"", "fall back, shell"},
    {"6 starts it", false, L"", L"", "6 made, 6 process 00000000, 6 done"},
    {"5 starts it where there is no 6", false, nullptr, L"", "6 missing, look for 5, 5 made, 5 done"},
    {"no service is registered", false, nullptr, nullptr, "6 missing, look for 5, 5 missing, fall back, shell"},
    {"6 refuses, 5 starts it", false, L"fail=0x80070005", L"",
     "6 made, 6 process 80070005, 6 failed 80070005, look for 5, 5 made, 5 done"},
    {"6 gives no handle, 5 refuses", false, L"nothing=1", L"fail=0x8000FFFF",
     "6 made, 6 process 00000000, 6 failed 00000000, look for 5, 5 made, 5 failed 8000ffff, fall back, shell"},
    {"6 crashes, 5 gives no handle", false, L"crash=1", L"nothing=1",
     "6 made, 6 process *, 6 failed *, look for 5, 5 made, 5 failed 00000000, fall back, shell"},
    {"6 can't be made, 5 crashes", false, L"create=0x80070057", L"crash=1",
     "6 unmade 80070057, look for 5, 5 made, 5 failed *, fall back, shell"},
    {"6 is gone, 5 can't be made", false, L"gone", L"create=0x80070057",
     "6 unmade *, look for 5, 5 unmade 80070057, fall back, shell"},
    {"a package, elevated", true, L"", L"", "no Park, fall back, msiexec", "BlueStacks"},
    {"6 installs a package", false, L"", L"", "no Park, 6 made, 6 package 00000000, 6 done", "BlueStacks"},
    {"6 is missing, 5 isn't asked for a package", false, nullptr, L"", "no Park, 6 missing, fall back, msiexec",
     "BlueStacks"},
    {"6 refuses a package", false, L"fail=0x80070005", L"",
     "no Park, 6 made, 6 package 80070005, 6 failed 80070005, fall back, msiexec", "BlueStacks"},
    // clang-format on
};
constexpr std::array Codes = {"7", "0", "1", "3010", "-1073741819"};

void CheckRoute(const Route& route, const std::string& code, const char* program = LS_SERVICE_EXE)
{
    CAPTURE(route.Promise);
    const bool isPackage = route.Product[0] != '\0';
    CSandbox sandbox(isPackage ? std::optional<std::wstring>(L"BlueStacks") : std::nullopt);
    if (isPackage)
        MakeBlueStacks(sandbox);
    sandbox.Elevated = route.Elevated;
    const CServices services(sandbox, route.Six, route.Five, program);
    const auto updater = sandbox.StartAnswered(sandbox.From(), L"/exit=" + LS::AnsiToWide(code));
    const auto outcome = updater->Finish();
    CHECK(outcome.ExitCode == 0);
    CHECK(outcome.Events == "Yes");

    const auto [steps, marks] = Tell(sandbox);
    CAPTURE(steps);
    const std::string ended = isPackage ? "0" : code;
    CHECK(
        Matches(std::string("begin, ") + route.Steps + ", wait, End : Returning dwExitCode=" + ended, steps));
    CHECK(sandbox.Marks() == marks + "; Update " + ended);
    CHECK(Uninstall() == isPackage);

    const std::wstring patch = sandbox.PatchFile().wstring();
    const std::wstring given = L"|" + std::to_wstring(updater->Id()) + L"|\"" + patch + L"\"|";
    const std::wstring line = CSandbox::FromRecord(sandbox.PatchRecord, "CommandLine");
    const std::wstring parameters = line.substr(std::min(line.size(), patch.size() + 3)); // quotes, blank
    const std::wstring folder = L"|" + sandbox.DataFolder.wstring() + L"\\";
    const bool asked6 = steps.find("6 made") != steps.npos, asked5 = steps.find("5 made") != steps.npos;
    const std::wstring process = L"Process" + given + L"0|0|" + parameters + folder;
    CHECK(services.Call(6) == (!asked6     ? L""
                               : isPackage ? L"Msiexec" + given + L"1|1|0,0" + folder
                                           : process));
    CHECK(services.Call(5) == (asked5 ? process : L""));
}

std::unique_ptr<CUpdaterProcess> StartLimited(CSandbox& sandbox, const std::wstring& installer)
{
    sandbox.Elevated = false;
    return sandbox.StartAnswered(sandbox.From(), installer);
}
} // namespace

TEST_CASE("the patch is started by the first route that works, and its code is logged")
{
    std::size_t number = 0;
    for (const Route& route : Routes)
        CheckRoute(route, Codes[number++ % Codes.size()]);
}

TEST_CASE("a service of the other bitness starts the patch and hands it over")
{
    // Each build makes one architecture; the other's service is there when that one was built before.
    if (!fs::exists(fs::absolute(LS_OTHER_SERVICE_EXE)))
    {
        MESSAGE("left out: the other architecture isn't built");
        return;
    }
    for (const Route& route : {Routes[1], Routes[2], Routes[4], Routes[10]})
        CheckRoute(route, "7", LS_OTHER_SERVICE_EXE);
}

TEST_CASE("nobody can change the patch or its folder while its start is awaited")
{
    constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    for (const bool isPackage : {false, true})
    {
        CAPTURE(isPackage);
        CSandbox sandbox(isPackage ? std::optional<std::wstring>(L"BlueStacks") : std::nullopt);
        if (isPackage)
            MakeBlueStacks(sandbox);
        const CServices services(sandbox, L"wait=LsRouteGoOn", nullptr);
        const CKernelHandle goOn(::CreateEventW(nullptr, TRUE, FALSE, L"LsRouteGoOn"));
        const auto updater = StartLimited(sandbox, L"/exit=0");
        REQUIRE(Tests::WaitFor([&] { return !services.Call(6).empty() || updater->HasEnded(); }));

        const std::wstring file = sandbox.PatchFile().wstring(), other = file + L".other";
        std::ofstream(fs::path(other)) << "swapped in";
        for (const unsigned long access : {0UL + GENERIC_WRITE, 0UL + FILE_APPEND_DATA, 0UL + DELETE})
            CHECK(!CFileHandle(
                ::CreateFileW(file.c_str(), access, ShareAll, nullptr, OPEN_EXISTING, 0, nullptr)));
        CHECK(!::MoveFileExW(other.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING));
        CHECK(!::ReplaceFileW(file.c_str(), other.c_str(), nullptr, 0, nullptr, nullptr));
        CHECK(!::MoveFileW(file.c_str(), (file + L".moved").c_str()));
        CHECK(!::DeleteFileW(file.c_str()));
        for (fs::path folder = sandbox.DataFolder; folder != sandbox.AppData; folder = folder.parent_path())
        {
            const std::wstring moved = folder.wstring() + L".moved";
            const bool done = ::MoveFileW(folder.c_str(), moved.c_str());
            CHECK_FALSE(done);
            if (done)
                ::MoveFileW(moved.c_str(), folder.c_str());
        }
        ::SetEvent(goOn.Get());
        CHECK(updater->Finish().ExitCode == 0);
        CHECK(sandbox.Logged("Elevation Service Invoke returned success"));
        CHECK(Uninstall() == isPackage);
    }
}

TEST_CASE("a service may take its time and die after handing over; the second handle is closed at once")
{
    CSandbox sandbox;
    const CServices services(sandbox, L"wait=LsRouteGoOn\ndie=1", nullptr);
    const CKernelHandle goOn(::CreateEventW(nullptr, TRUE, FALSE, L"LsRouteGoOn"));
    const CKernelHandle end(::CreateEventW(nullptr, TRUE, FALSE, L"LsRouteEnd"));
    const auto updater = StartLimited(sandbox, L"/wait-event=LsRouteEnd /exit=77");
    const bool called = Tests::WaitFor([&] { return !services.Call(6).empty() || updater->HasEnded(); });
    REQUIRE(called);
    CHECK(!sandbox.Logged("ExecuteElevatedProcessAsync() returned"));
    ::SetEvent(goOn.Get());
    REQUIRE(sandbox.WaitForLog(*updater, "Waiting for it to terminate"));
    REQUIRE(services.WaitForEnd(6));
    CHECK(!CKernelHandle(::OpenEventW(SYNCHRONIZE, FALSE, L"LsElevationSecondHandle")));
    CHECK(!updater->HasEnded());
    ::SetEvent(end.Get());
    CHECK(updater->Finish().ExitCode == 0);
    CHECK(sandbox.Logged("Returning dwExitCode=77"));
}

TEST_CASE("the run ends with its patch, not with what the patch leaves running")
{
    CSandbox sandbox;
    const CKernelHandle end(::CreateEventW(nullptr, TRUE, FALSE, L"LsRouteChildEnd"));
    CHECK(sandbox.Run(L"/noparking", L"/child=LsRouteChildEnd /exit=5").ExitCode == 0);
    CHECK(sandbox.Logged("Returning dwExitCode=5"));
    const std::wstring record = sandbox.PatchFile().wstring() + L".child";
    REQUIRE(Tests::WaitFor([&] { return fs::exists(record); }));
    const CKernelHandle child(
        ::OpenProcess(SYNCHRONIZE, FALSE, std::stoul(CSandbox::FromRecord(record, "ProcessId"))));
    CHECK(::WaitForSingleObject(child.Get(), 0) == WAIT_TIMEOUT);
    ::SetEvent(end.Get());
    CHECK(::WaitForSingleObject(child.Get(), CUpdaterProcess::LongestRunMs) == WAIT_OBJECT_0);
}

TEST_CASE("a patch that can't be started makes Park give up")
{
    for (const bool elevated : {true, false})
    {
        CAPTURE(elevated);
        CSandbox sandbox;
        sandbox.Elevated = elevated;
        sandbox.Patch = Tests::Sample("not-a-program");
        const CServices services(sandbox, L"", L"");
        REQUIRE(sandbox.Run(sandbox.From(), L"/exit=0").ExitCode == 1281);
        const std::string asked = "6 made, 6 process *, 6 failed *, look for 5, 5 made, 5 failed *, ";
        const auto [steps, marks] = Tell(sandbox);
        CHECK(Matches(
            "begin, " + (elevated ? "" : asked) +
                "fall back, shell, ShellExecuteEx() returned false : LastError=193, end Park, give up",
            steps));
        CHECK(sandbox.Marks() == marks +
                                     "; ShellExec_Patch ProcessElevation:" + (elevated ? "true" : "false") +
                                     "; CExitCodeException 1281; Update 1281");
        const fs::path park = sandbox.ParkRecord();
        CHECK(Tests::WaitForProcess(CSandbox::FromRecord(park, "ProcessId")));
        CHECK(CSandbox::FromRecord(park, "Ended") == L"terminate");
        const std::wstring line = CSandbox::FromRecord(sandbox.ParkRecord(true), "CommandLine");
        CHECK(line.ends_with(L" /EventTerminate \"Global\\LSPARKTERM\" /SignalTerminate"));
        CHECK(CSandbox::FromRecord(sandbox.ParkRecord(true), "Folder") == sandbox.DataFolder.wstring());
    }
}

TEST_CASE("what the installation reports moves the bar from 55 to 100")
{
    const wchar_t* const keyPath = L"Software\\Larkspur\\InstallerStatus";
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyPath);
    CSandbox sandbox;
    const CKernelHandle end(::CreateEventW(nullptr, TRUE, FALSE, L"LsRouteEnd"));
    const auto updater = sandbox.StartAnswered(L"/noparking", L"/wait-event=LsRouteEnd");
    // The bar's values so far, each only once in a row, and the number of looks.
    const auto bar = [&] {
        std::string values, last;
        for (const std::string& line : sandbox.LogLines())
        {
            const std::string prefix = "CUI::SetProgress() : Progress=";
            if (line.rfind(prefix, 0) == 0 && line != last)
                values += line.substr(prefix.size()) + " ";
            last = line.rfind(prefix, 0) == 0 ? line : last;
        }
        return values;
    };
    const auto looks = [&] {
        const auto lines = sandbox.LogLines();
        return std::count(lines.begin(), lines.end(),
                          "LaunchEXE() : Launched process : Waiting for it to terminate");
    };
    std::string expected = "55 ";
    // No key at all, then one that appears late.
    const std::pair<const wchar_t*, const char*> readings[] = {
        {nullptr, ""},     {L"30", "68 "},   {L"100", ""},     {L"0", "55 "}, {L"250", ""},
        {L"99.9", "100 "}, {L"text", "55 "}, {L"12,5", "60 "}, {L"1e400", ""}};
    for (const auto& [reading, moved] : readings)
    {
        CAPTURE(expected);
        LS::System::Win32::CRegistryKeyHandle key;
        if (reading)
        {
            ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              key.Receive(), nullptr);
            ::RegSetValueExW(key.Get(), L"Install", 0, REG_SZ, reinterpret_cast<const BYTE*>(reading),
                             static_cast<DWORD>((std::wcslen(reading) + 1) * sizeof(wchar_t)));
        }
        const auto seen = looks();
        REQUIRE(Tests::WaitFor([&] { return looks() > seen + 2 || updater->HasEnded(); }));
        expected += moved;
        CHECK(bar().ends_with(expected));
    }
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyPath);
    ::SetEvent(end.Get());
    CHECK(updater->Finish().ExitCode == 0);
    CHECK(sandbox.Logged("Exception (...) caught waiting for ShellExecd process to terminate"));
}

TEST_CASE("patch and Park are started with exactly what is meant, by the shell and by the service")
{
    wchar_t programFiles[MAX_PATH] = {};
    ::GetEnvironmentVariableW(L"ProgramFiles", programFiles, MAX_PATH); // the 32-bit one in a 32-bit program
    const std::wstring parkBegin =
        L" /Execute \"" + std::wstring(programFiles) +
        L"\\Larkspur Games\\App\\PlayDeck-ls.exe\" /LaunchParams \"/noupdate! /userlocale ";
    const std::wstring parkEnd =
        L"\" /EventTerminate \"Global\\LSPARKTERM\" /EventExecute \"Global\\LSPARKEXEC\"";
    const struct
    {
        const wchar_t* User; // part of the patch's path
        const char* PatchName;
        const wchar_t* Options;
        const wchar_t* Installer;
        const wchar_t* Client; // null: Park isn't started
        const wchar_t* Park = L"Park.exe";
    } cases[] = {
        {L"User", "Patch.exe", L"", L"/S  \"/D=C:\\Program Files\\x\" /exit=0 ", L" /dp "},
        {L"A B", "My%20Patch.exe", L"/locale=de-DE /dp=start", L"\"\" \"%TEMP%\" ^& | <a>",
         L"de-DE /dp start", L"PatchTools\\Park.exe"},
        {L"\uC720\uC800 100% & ^b;(1)", "50%25%20%26%5E%25none%25.exe",
         L"/locale=ko /dp=unused \"/appargs=/room 7 /quiet\"", L"\uD55C\uAE00 \"/a=b c\"",
         L"ko /room 7 /quiet"},
        {L"%none%", "Patch.exe", L"/noparking", L"", nullptr},
        {L"User", "Patch.exe", L"\"/parkpath=%s\"", L"", L" /dp ", L"Elsewhere & more\\Any name.exe"},
    };
    for (const auto& one : cases)
        for (const bool elevated : {true, false})
        {
            CAPTURE(LS::WideToAnsi(one.User));
            CAPTURE(elevated);
            CSandbox sandbox(std::nullopt, one.User);
            sandbox.Elevated = elevated;
            sandbox.PatchName = one.PatchName;
            const CServices services(sandbox, L"", nullptr);
            const fs::path source = sandbox.Program / one.Park;
            fs::create_directory(source.parent_path());
            fs::rename(sandbox.Program / L"Park.exe", source);
            std::wstring options = one.Options;
            if (options.find(L"%s") != options.npos)
                options.replace(options.find(L"%s"), 2, source.wstring());
            const auto outcome = sandbox.Run(options, one.Installer);
            REQUIRE(outcome.ExitCode == 0);

            const std::wstring data = sandbox.DataFolder.wstring();
            fs::path record = sandbox.PatchRecord, copy;
            for (const auto& entry : fs::directory_iterator(sandbox.DataFolder))
            {
                if (entry.path().extension() == L".started") // without installer arguments it lies there
                    record = entry.path();
                if (entry.path().extension() == L".exe" &&
                    entry.path().filename().wstring().rfind(L"Park-{", 0) == 0)
                    copy = entry.path();
            }
            REQUIRE(copy.filename().wstring().size() == 6 + 36 + 5);
            // The copy's path keeps the doubled backslash that joins folder and name.
            std::wstring expected = L"\"" + CSandbox::FromRecord(record, "Path") + L"\" /park=\"" + data +
                                    L"\\\\" + copy.filename().wstring() + L"\"";
            if (one.Installer[0])
                expected += L" \"/record=" + sandbox.PatchRecord.wstring() + L"\" " + one.Installer;
            CHECK(CSandbox::FromRecord(record, "CommandLine") == expected);
            CHECK(CSandbox::FromRecord(record, "Folder") == data);
            CHECK(services.Call(6).empty() == elevated);

            if (!one.Client)
                continue;
            const fs::path park = sandbox.ParkRecord();
            CHECK(CSandbox::FromRecord(park, "CommandLine").ends_with(parkBegin + one.Client + parkEnd));
            CHECK(CSandbox::FromRecord(park, "Folder") == data);
        }
}
