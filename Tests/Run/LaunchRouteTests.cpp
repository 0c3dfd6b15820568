// How the accepted patch is started: by which route, with what, and what is seen of it while it runs. The
// elevation service is a real COM server, registered for the time of a test.
// Left out: 1280 (nothing uses COM on the updater's thread before it does; UpdaterTests reaches it), 1536 and
// the system folder being unknown (calls that don't fail), and what only a real Windows has: the shell asking
// for consent, a service with more rights than its caller. Wine's shell, unlike Windows', expands the name of
// a variable that exists in a program's path, so the paths name one that doesn't.
#include "Ls/System/String/Convert.h"
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/StartProcess.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <fstream>

using LS::System::Win32::CFileHandle;
using LS::System::Win32::CKernelHandle;
using LS::System::Win32::CRegistryKeyHandle;
using Tests::CSandbox;
using Tests::CUpdaterProcess;
namespace fs = std::filesystem;

namespace
{
constexpr const wchar_t *Service = L"ElevationService.exe", *OtherService = L"Other\\ElevationService.exe";

/// The service's generations 6 and 5, installed in both views of the registry: each as its orders say (see
/// the stand-in), "gone" without its program, null not at all. Removed when their processes have ended.
class CServices
{
public:
    CServices(const CSandbox& sandbox, const wchar_t* six, const wchar_t* five,
              const wchar_t* program = Service) :
        m_Folder(sandbox.Root / L"The service"),
        m_Program(Tests::InKit(program))
    {
        Unregister(); // what a killed test may have left
        const fs::path description = m_Folder / L"dispatchers.tlb";
        fs::create_directory(m_Folder);
        fs::copy_file(Tests::InKit(L"dispatchers.tlb"), description);
        for (const wchar_t* system : {L"win32", L"win64"})
            Set(Library, L"\\1.0\\0\\" + std::wstring(system), description);
        Install(6, six, Class6, Interface6);
        Install(5, five, Class5, Interface5);
    }
    CServices(const CServices&) = delete;
    ~CServices()
    {
        for (const unsigned generation : {6U, 5U})
        {
            // Without orders a service ends; it may just be reading them.
            const std::wstring orders = Exe(generation) + L".ini";
            Tests::WaitFor([&] { return ::DeleteFileW(orders.c_str()) || !fs::exists(orders); });
            WaitForEnd(generation);
        }
        Unregister();
    }

    /// How that generation was called; empty when it wasn't.
    std::wstring Call(unsigned generation) const
    {
        return CSandbox::FromRecord(Exe(generation) + L".txt", "Call");
    }
    /// False when it is still there after a long time.
    bool WaitForEnd(unsigned generation) const
    {
        const std::wstring id = CSandbox::FromRecord(Exe(generation) + L".txt", "ProcessId");
        const CKernelHandle process(id.empty() ? nullptr : ::OpenProcess(SYNCHRONIZE, FALSE, std::stoul(id)));
        return !process ||
               ::WaitForSingleObject(process.Get(), CUpdaterProcess::LongestRunMs) == WAIT_OBJECT_0;
    }

private:
    static constexpr const wchar_t *Library = L"TypeLib\\{6C0E8B55-5D0B-4E0E-9B0A-5B3C0C2C7F11}",
                                   *Class6 = L"CLSID\\{3540DE9F-C4F7-4A44-B371-369C08D0A5B0}",
                                   *Class5 = L"CLSID\\{1548BD36-362D-43B0-BABA-C73C52DDADDB}",
                                   *Interface6 = L"Interface\\{F349007D-4D30-41F9-89A3-60EC4EEE1FCD}",
                                   *Interface5 = L"Interface\\{68CFA01F-33BD-40FA-BE18-29930A1BE242}";

    std::wstring Exe(unsigned generation) const
    {
        return (m_Folder / (L"Service" + std::to_wstring(generation) + L".exe")).wstring();
    }
    void Install(unsigned generation, const wchar_t* orders, const wchar_t* classKey,
                 const wchar_t* interfaceKey) const
    {
        if (!orders)
            return;
        if (std::wstring(orders) != L"gone")
            fs::copy_file(m_Program, Exe(generation));
        std::wofstream(fs::path(Exe(generation) + L".ini"))
            << L"[Do]\nowner=" << ::GetCurrentProcessId() << L"\n"
            << orders << L"\n";
        Set(classKey, L"\\LocalServer32", L"\"" + Exe(generation) + L"\"", nullptr,
            generation == 5 ? REG_EXPAND_SZ : REG_SZ);
        Set(interfaceKey, L"\\ProxyStubClsid32", L"{00020424-0000-0000-C000-000000000046}");
        Set(interfaceKey, L"\\TypeLib", std::wstring(Library).substr(8));
        Set(interfaceKey, L"\\TypeLib", L"1.0", L"Version");
    }

    static std::wstring Path(const wchar_t* key) { return std::wstring(L"Software\\Classes\\") + key; }
    static void Set(const wchar_t* key, const std::wstring& subKey, const std::wstring& value,
                    const wchar_t* name = nullptr, DWORD type = REG_SZ)
    {
        for (const REGSAM view : {KEY_WOW64_32KEY, KEY_WOW64_64KEY})
        {
            CRegistryKeyHandle handle;
            ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, (Path(key) + subKey).c_str(), 0, nullptr, 0,
                              KEY_WRITE | view, nullptr, handle.Receive(), nullptr);
            ::RegSetValueExW(handle.Get(), name, 0, type, reinterpret_cast<const BYTE*>(value.c_str()),
                             static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
        }
    }
    static void Unregister()
    {
        for (const REGSAM view : {KEY_WOW64_32KEY, KEY_WOW64_64KEY})
            for (const wchar_t* key : {Library, Class6, Class5, Interface6, Interface5})
            {
                CRegistryKeyHandle handle;
                if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, Path(key).c_str(), 0, KEY_ALL_ACCESS | view,
                                    handle.Receive()) != ERROR_SUCCESS)
                    continue;
                ::RegDeleteTreeW(handle.Get(), nullptr);
                ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, Path(key).c_str(), view, 0);
            }
    }

    const fs::path m_Folder, m_Program;
};

/// Whether that can't be shown here, which is said.
bool LeftOut(bool elevated)
{
    const bool can = CUpdaterProcess::CanStart(elevated);
    WARN_MESSAGE(can, "left out: nobody here has less than an administrator's rights");
    return !can;
}

/// Whether the package was installed, without a question or a window; it is removed again.
bool Uninstall()
{
    wchar_t installed[8] = {};
    DWORD size = sizeof(installed);
    ::RegGetValueW(HKEY_LOCAL_MACHINE, L"Software\\WOW6432Node\\LsSamplePackage", L"Installed", RRF_RT_REG_SZ,
                   nullptr, installed, &size);
    const CKernelHandle msiexec =
        Tests::StartProcess(L"msiexec.exe /x {8D0E6C52-3B51-4C55-9C0B-0B8D5A4B8E01} /qn");
    ::WaitForSingleObject(msiexec.Get(), CUpdaterProcess::LongestRunMs);
    return std::wstring(installed) == L"2"; // INSTALLUILEVEL_NONE
}

struct Route
{
    std::string Promise;
    bool Elevated;
    const wchar_t *Six, *Five;
    /// Which services are called to start the patch.
    std::wstring Called;
    /// What analytics are told, and what the log says in the end.
    std::string Marks, Logged;
    bool IsPackage = false;
    bool Ends = true;
};

const std::string By6 = "Elevation Service Invoke returned success",
                  By5 = "ExecuteElevatedProcessAsync succeeded",
                  ByShell = "Attempting GA update with ShellExecuteEx()",
                  ByMsiexec = "Attempting blueStacks update with ShellExecuteEx()";

const Route Routes[] = {
    {"elevated, no service is asked", true, L"", L"", L"", "", ByShell},
    {"6 starts it", false, L"", L"", L"6", "", By6},
    {"5 starts it where there is no 6", false, nullptr, L"", L"5", "ServiceMissing_6 NA; ", By5},
    {"no service is registered", false, nullptr, nullptr, L"", "ServiceMissing_6 NA; ServiceMissing_5 NA; ",
     ByShell},
    {"6 refuses, 5 starts it", false, L"fail=0x80070005", L"", L"65", "ServiceInvoke hResult=0x80070005; ",
     By5},
    {"6 gives no handle, 5 refuses", false, L"handle=0", L"fail=0x8000FFFF", L"65",
     "ServiceInvoke hResult=0x00000000; ServiceInvoke hResult=0x8000FFFF; ", ByShell},
    {"6 crashes, 5 gives no handle", false, L"crash=1", L"handle=0", L"65",
     "ServiceInvoke hResult=0x*; ServiceInvoke hResult=0x00000000; ", ByShell},
    {"6 can't be made, 5 crashes", false, L"create=0x80070057", L"crash=1", L"5",
     "ServiceExists_6 hResult=0x80070057; ServiceInvoke hResult=0x*; ", ByShell},
    {"6 is gone, 5 can't be made", false, L"gone", L"create=0x80070057", L"",
     "ServiceExists_6 hResult=0x*; ServiceExists_5 hResult=0x80070057; ", ByShell},
    {"6 hands over the updater, 5 its thread", false, L"handle=-1", L"handle=-2", L"65",
     "ServiceInvoke hResult=0x00000000; ServiceInvoke hResult=0x00000000; ", ByShell},
    {"6 hands over an event", false, L"handle=event", L"", L"65", "ServiceInvoke hResult=0x00000000; ", By5},
    {"6 hands over a process that can't be waited for, only asked for its code", false, L"rights=0x1000", L"",
     L"6", "CExitCodeException 1281; ", "Can't wait for the launched process : LastError=5", false, false},
    {"a package, elevated", true, L"", L"", L"", "", ByMsiexec, true},
    {"6 installs a package", false, L"", L"", L"6", "", By6, true},
    {"6 is missing, 5 isn't asked for a package", false, nullptr, L"", L"", "ServiceMissing_6 NA; ",
     ByMsiexec, true},
};

void CheckRoute(const Route& route, const wchar_t* program = Service)
{
    CAPTURE(route.Promise);
    CAPTURE(LS::WideToAnsi(program));
    if (LeftOut(route.Elevated))
        return;
    CSandbox sandbox(route.IsPackage ? std::optional<std::wstring>(L"BlueStacks") : std::nullopt, L"A B");
    if (route.IsPackage)
    {
        Uninstall(); // what a killed test may have left
        sandbox.Patch = Tests::Sample("bluestacks", ".msi");
        sandbox.PatchName = "Patch.msi";
    }
    sandbox.Elevated = route.Elevated;
    const CServices services(sandbox, route.Six, route.Five, program);
    const auto outcome = sandbox.Run(sandbox.From(), L"/exit=3010");
    CHECK(outcome.ExitCode == (route.Ends ? 0 : 1281));
    CHECK(outcome.Events == std::string(route.Ends ? "Yes" : "Yes No"));
    const std::string marks = sandbox.Marks();
    const std::string code = !route.Ends ? "1281" : route.IsPackage ? "0" : "3010";
    CAPTURE(marks);
    CHECK(Tests::Fits(marks, "NewDLSuccess 1; " + route.Marks + "Update " + code));
    CHECK(sandbox.Logged("LaunchEXE() : " + route.Logged));
    CHECK(!sandbox.Logged("telling park to Terminate"));
    if (route.IsPackage)
        CHECK(Uninstall());

    Tests::WaitFor([&] { return route.Ends || fs::exists(sandbox.PatchRecord); });
    const std::wstring patch = sandbox.PatchFile().wstring();
    const std::wstring given = L"|" + std::to_wstring(outcome.ProcessId) + L"|\"" + patch + L"\"|";
    const std::wstring line = CSandbox::FromRecord(sandbox.PatchRecord, "CommandLine");
    const std::wstring parameters = line.substr(std::min(line.size(), patch.size() + 3)); // quotes, blank
    const std::wstring folder = L"|" + sandbox.DataFolder.wstring() + L"\\";
    const std::wstring call = route.IsPackage ? L"Msiexec" + given + L"1|1|0,0" + folder
                                              : L"Process" + given + L"0|0|" + parameters + folder;
    for (const wchar_t generation : {L'6', L'5'})
    {
        const bool isCalled = route.Called.find(generation) != std::wstring::npos;
        CHECK(services.Call(generation - L'0') == (isCalled ? call : std::wstring()));
    }
}
} // namespace

TEST_CASE("the patch is started by the first route that works, and its code is logged")
{
    for (const Route& route : Routes)
        CheckRoute(route);
}

TEST_CASE("a service of the other bitness starts the patch and hands it over")
{
    // Each build makes one architecture; the other's service is there when that one was built before.
    if (!fs::exists(Tests::InKit(OtherService)))
    {
        MESSAGE("left out: the other architecture isn't built");
        return;
    }
    for (const Route& route : {Routes[1], Routes[2], Routes[4], Routes[10]})
        CheckRoute(route, OtherService);
}

TEST_CASE("a service may take its time, when nobody can change the patch, and die after handing over")
{
    if (LeftOut(false))
        return;
    CSandbox sandbox;
    sandbox.Elevated = false;
    const CServices services(sandbox, L"wait=LsRouteGoOn\ndie=1", nullptr);
    const CKernelHandle goOn(Tests::OpenToAll(L"LsRouteGoOn", true));
    const CKernelHandle end(Tests::OpenToAll(L"LsRouteEnd", true));
    const auto updater = sandbox.StartAnswered(sandbox.From(), L"/wait-event=LsRouteEnd /exit=259");
    REQUIRE(Tests::WaitFor([&] { return !services.Call(6).empty() || updater->HasEnded(); }));
    CHECK(!sandbox.Logged("ExecuteElevatedProcessAsync() returned"));

    const std::wstring file = sandbox.PatchFile().wstring(), other = file + L".other";
    std::ofstream(fs::path(other)) << "swapped in";
    constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    for (const unsigned long access : {0UL + GENERIC_WRITE, 0UL + FILE_APPEND_DATA, 0UL + DELETE})
        CHECK(
            !CFileHandle(::CreateFileW(file.c_str(), access, ShareAll, nullptr, OPEN_EXISTING, 0, nullptr)));
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
    REQUIRE(sandbox.WaitForLog(*updater, "Waiting for it to terminate"));
    REQUIRE(services.WaitForEnd(6));
    CHECK(!CKernelHandle(::OpenEventW(SYNCHRONIZE, FALSE, L"LsElevationSecondHandle"))); // closed at once
    CHECK(!updater->HasEnded());
    ::SetEvent(end.Get());
    CHECK(updater->Finish().ExitCode == 0);
    CHECK(sandbox.Logged("Returning dwExitCode=259"));
}

TEST_CASE("a package can't be changed until its installation has ended")
{
    CSandbox sandbox(L"BlueStacks");
    sandbox.Patch = Tests::Sample("bluestacks", ".msi");
    sandbox.PatchName = "Patch.msi";
    sandbox.Elevated = false;
    const std::wstring installer = L"run=\"" + (sandbox.Program / L"Park.exe").wstring() + L"\"";
    const CServices services(sandbox, (installer + L" /EventTerminate LsRouteEnd").c_str(), nullptr);
    const CKernelHandle end(::CreateEventW(nullptr, TRUE, FALSE, L"LsRouteEnd"));
    const auto updater = sandbox.StartAnswered(sandbox.From(), L"");
    REQUIRE(sandbox.WaitForLog(*updater, "Waiting for it to terminate"));
    CHECK(!::DeleteFileW(sandbox.PatchFile().c_str()));
    ::SetEvent(end.Get());
    CHECK(updater->Finish().ExitCode == 0);
    CHECK(::DeleteFileW(sandbox.PatchFile().c_str()));
}

TEST_CASE("a patch that can't be started makes Park give up")
{
    for (const bool elevated : {true, false})
    {
        CAPTURE(elevated);
        if (LeftOut(elevated))
            continue;
        CSandbox sandbox;
        sandbox.Elevated = elevated;
        sandbox.Patch = Tests::Sample("not-a-program");
        const CServices services(sandbox, L"", L"");
        REQUIRE(sandbox.Run(sandbox.From(), L"/exit=0").ExitCode == 1281);
        // Which error Windows and the versions of Wine have for it isn't told here.
        CHECK(sandbox.Logged("LaunchEXE() : ShellExecuteEx() returned false : LastError="));
        CHECK(!sandbox.Logged("LastError=0"));
        const std::string asked = elevated ? "" : "ServiceInvoke hResult=0x*; ServiceInvoke hResult=0x*; ";
        const std::string marks = sandbox.Marks();
        CAPTURE(marks);
        CHECK(Tests::Fits(marks, "NewDLSuccess 1; " + asked +
                                     "ShellExec_Patch ProcessElevation:" + (elevated ? "true" : "false") +
                                     "; CExitCodeException 1281; Update 1281"));
        const fs::path park = sandbox.ParkRecord();
        CHECK(Tests::WaitFor([&] { return CSandbox::FromRecord(park, "Ended") == L"terminate"; }));
        const std::wstring line = CSandbox::FromRecord(sandbox.ParkRecord(true), "CommandLine");
        CHECK(line.ends_with(L" /EventTerminate \"Global\\LSPARKTERM\" /SignalTerminate"));
        CHECK(CSandbox::FromRecord(sandbox.ParkRecord(true), "Folder") == sandbox.DataFolder.wstring());
    }
}

TEST_CASE("patch and Park are started with exactly what is meant, by the shell and by the service")
{
    const std::wstring parkBegin =
        L"\\Larkspur Games\\App\\PlayDeck-ls.exe\" /LaunchParams \"/noupdate! /userlocale ";
    const std::wstring parkEnd =
        L"\" /EventTerminate \"Global\\LSPARKTERM\" /EventExecute \"Global\\LSPARKEXEC\"";
    const struct
    {
        const wchar_t* User; // with the product's name part of the patch's path
        const char* PatchName;
        const wchar_t* Options;
        const wchar_t* Installer;
        const wchar_t* Client; // null: Park isn't started
        const wchar_t* Park = L"Park.exe";
        std::optional<std::wstring> Product = std::nullopt;
    } cases[] = {
        {L"User", "Patch.exe?a=b/c.txt", L"", L"/S  \"/D=C:\\Program Files\\x\" /exit=0 ", L" /dp "},
        {L"A B", "My%20Patch%2eex%65", L"/locale=de-DE /dp=start", L"\"\" \"%TEMP%\" ^& | <a>",
         L"de-DE /dp start", L"PatchTools\\Park.exe"},
        {L"\uC720\uC800 100% & ^b;(1)", "50%25%20%26%5E%25none%25.ExE",
         L"/locale=ko /dp=unused \"/appargs=/room 7 /quiet\"", L"\uD55C\uAE00 \"/a=b c\"",
         L"ko /room 7 /quiet", L"Park.exe", L"\U0001F3AE Play & \u041F\u0440\u043E\u0434"},
        {L"%none%", "Patch.exe", L"/noparking", L"", nullptr},
        {L"User", "Patch.exe", L"\"/parkpath=%s\"", L"", L" /dp ", L"Elsewhere & more\\Any name.exe"},
    };
    for (const auto& one : cases)
        for (const bool elevated : {true, false})
        {
            CAPTURE(LS::WideToAnsi(one.User));
            CAPTURE(LS::WideToAnsi(one.Options));
            CAPTURE(elevated);
            if (LeftOut(elevated))
                continue;
            CSandbox sandbox(one.Product, one.User);
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
            CHECK(CSandbox::FromRecord(park, "CommandLine")
                      .ends_with(L" /Execute \"" + sandbox.ProgramFiles.wstring() + parkBegin + one.Client +
                                 parkEnd));
            CHECK(CSandbox::FromRecord(park, "Folder") == data);
        }
}
