// Stands in for the elevation service: a COM server started on demand. It serves the generation that its
// file's name ends in ("Service6.exe"), starts what it is asked to start and hands the handles over to the
// caller. Beside itself it leaves a record of how it was started and called, and finds what it is to do
// instead in "Service6.exe.ini", section "Do":
//   owner=ID         ends when that process has ended
//   create=HRESULT   refuses to make its object
//   fail=HRESULT     starts nothing and fails
//   handle=NUMBER    starts nothing and succeeds with that number, or with an event's handle ("event")
//   rights=NUMBER    hands the process over with these rights only
//   run=LINE         runs that instead of msiexec
//   crash=1          ends in the middle of the call
//   wait=EVENT       waits in the call until that event is set
//   die=1            ends by force as soon as the handles are handed over and the object let go
// The second handle is an event's, which lives as long as the caller keeps the handle.
#include "Tests/StandIns/Record.h"
#include "Tests/Support/StartProcess.h"

#include <dispatchers.h> // made from Dispatchers.idl

#ifdef __GNUC__
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // COM objects end by Release
#endif

namespace
{
using LS::System::Win32::CKernelHandle;

constexpr UINT LongestWaitMs = 300000;
/// A service that nobody lets go of ends when its orders are taken away or its owner has ended, which it
/// looks for so often.
constexpr UINT LookMs = 100;

const IID ClassId6 = {0x3540DE9F, 0xC4F7, 0x4A44, {0xB3, 0x71, 0x36, 0x9C, 0x08, 0xD0, 0xA5, 0xB0}};
const IID ClassId5 = {0x1548BD36, 0x362D, 0x43B0, {0xBA, 0xBA, 0xC7, 0x3C, 0x52, 0xDD, 0xAD, 0xDB}};

std::wstring Order(const wchar_t* name)
{
    wchar_t value[256] = {};
    ::GetPrivateProfileStringW(L"Do", name, L"", value, 256, (StandIns::OwnPath() + L".ini").c_str());
    return value;
}

HRESULT OrderedResult(const wchar_t* name)
{
    return static_cast<HRESULT>(std::wcstoul(Order(name).c_str(), nullptr, 0));
}

/// The object may be let go for a moment before its caller has it.
bool g_WasCalled = false;

/// With the same rights unless some are given.
LONG HandOver(HANDLE handle, HANDLE caller, DWORD rights = 0)
{
    HANDLE theirs = nullptr;
    ::DuplicateHandle(::GetCurrentProcess(), handle, caller, &theirs, rights, FALSE,
                      DUPLICATE_CLOSE_SOURCE | (rights == 0 ? DUPLICATE_SAME_ACCESS : 0));
    return HandleToLong(theirs);
}

HRESULT Start(LONG callerId, const std::wstring& commandLine, const wchar_t* folder, LONG* process,
              LONG* second)
{
    *process = *second = 0;
    g_WasCalled = true;
    if (Order(L"crash") == L"1")
        ::TerminateProcess(::GetCurrentProcess(), 1);
    if (const std::wstring name = Order(L"wait"); !name.empty())
        ::WaitForSingleObject(::CreateEventW(nullptr, TRUE, FALSE, name.c_str()), LongestWaitMs);
    if (FAILED(OrderedResult(L"fail")))
        return OrderedResult(L"fail");

    const CKernelHandle caller(::OpenProcess(PROCESS_DUP_HANDLE, FALSE, static_cast<DWORD>(callerId)));
    if (const std::wstring handle = Order(L"handle"); !handle.empty())
    {
        *process = handle == L"event" ? HandOver(::CreateEventW(nullptr, TRUE, TRUE, nullptr), caller.Get())
                                      : std::stol(handle);
        return S_OK;
    }
    CKernelHandle started;
    try
    {
        started = Tests::StartProcess(commandLine, {.Folder = folder});
    }
    catch (const std::exception&)
    {
        return E_FAIL;
    }
    *process = HandOver(started.Detach(), caller.Get(), std::wcstoul(Order(L"rights").c_str(), nullptr, 0));
    *second = HandOver(::CreateEventW(nullptr, TRUE, FALSE, L"LsElevationSecondHandle"), caller.Get());
    return S_OK;
}

void RecordCall(const wchar_t* operation, LONG callerId, BSTR file, LONG number1, LONG number2, BSTR text,
                BSTR folder)
{
    const auto shown = [](BSTR given) { return given ? std::wstring(given) : std::wstring(L"(null)"); };
    StandIns::WriteRecord(StandIns::OwnPath() + L".txt",
                          std::wstring(L"Call: ") + operation + L"|" + std::to_wstring(callerId) + L"|" +
                              shown(file) + L"|" + std::to_wstring(number1) + L"|" +
                              std::to_wstring(number2) + L"|" + shown(text) + L"|" + shown(folder) + L"\n");
}

/// What both generations share; the process lives as long as its one object.
template <class Interface>
struct Dispatcher : Interface
{
    LONG References = 0;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        const bool known = id == IID_IUnknown || id == IID_IDispatch || id == __uuidof(Interface);
        *object = known ? this : nullptr;
        References += known ? 1 : 0;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++References); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        if (--References == 0 && g_WasCalled)
        {
            if (Order(L"die") == L"1")
                ::TerminateProcess(::GetCurrentProcess(), 1);
            ::PostQuitMessage(0);
        }
        return static_cast<ULONG>(References);
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ExecuteElevatedProcessAsync(LONG callerId, BSTR file, BSTR parameters,
                                                          BSTR folder, LONG zero1, LONG zero2, LONG* process,
                                                          LONG* second) override
    {
        RecordCall(L"Process", callerId, file, zero1, zero2, parameters, folder);
        return Start(callerId, std::wstring(file) + L" " + (parameters ? parameters : L""), folder, process,
                     second);
    }
};

struct Dispatcher5 : Dispatcher<IDispatcher5>
{
};

struct Dispatcher6 : Dispatcher<IDispatcher6>
{
    HRESULT STDMETHODCALLTYPE ExecuteElevatedMsiexecAsync(LONG callerId, BSTR package, LONG one1, LONG one2,
                                                          BSTR folder, LONG zero1, LONG zero2, LONG* process,
                                                          LONG* second) override
    {
        const std::wstring zeros = std::to_wstring(zero1) + L"," + std::to_wstring(zero2);
        RecordCall(L"Msiexec", callerId, package, one1, one2, const_cast<BSTR>(zeros.c_str()), folder);
        const std::wstring ordered = Order(L"run"),
                           line = std::wstring(L"msiexec.exe /i ") + package + L" /qn";
        return Start(callerId, ordered.empty() ? line : ordered, folder, process, second);
    }
};

struct Factory : IClassFactory
{
    bool Is6 = false;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        const bool known = id == IID_IUnknown || id == IID_IClassFactory;
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID id, void** object) override
    {
        static Dispatcher6 dispatcher6;
        static Dispatcher5 dispatcher5;
        if (FAILED(OrderedResult(L"create")))
            return OrderedResult(L"create");
        return Is6 ? dispatcher6.QueryInterface(id, object) : dispatcher5.QueryInterface(id, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};
} // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    StandIns::WriteRecord(StandIns::OwnPath() + L".txt");
    static Factory factory;
    factory.Is6 = StandIns::OwnPath().ends_with(L"6.exe");
    DWORD registration = 0;
    ::CoInitialize(nullptr);
    if (FAILED(::CoRegisterClassObject(factory.Is6 ? ClassId6 : ClassId5, &factory, CLSCTX_LOCAL_SERVER,
                                       REGCLS_SINGLEUSE, &registration)))
        return 1;
    ::SetTimer(nullptr, 0, LookMs, nullptr);
    const std::wstring orders = StandIns::OwnPath() + L".ini";
    const CKernelHandle owner(
        ::OpenProcess(SYNCHRONIZE, FALSE, std::wcstoul(Order(L"owner").c_str(), nullptr, 10)));
    MSG message;
    while (::GetMessageW(&message, nullptr, 0, 0) > 0 &&
           ::WaitForSingleObject(owner.Get(), 0) != WAIT_OBJECT_0 &&
           ::GetFileAttributesW(orders.c_str()) != INVALID_FILE_ATTRIBUTES)
        ::DispatchMessageW(&message);
    return 0;
}
