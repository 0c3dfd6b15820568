#pragma once

#include <windows.h>

#include <oaidl.h>

// The interfaces of the elevation service, a COM server with administrator rights that is installed and
// released apart from the updater. It comes in two generations; a machine may have either, both or none.
//
// The handles that come back are the caller's own (the service duplicates them into its process). They travel
// as 32-bit numbers, which hold any handle of Windows, so that service and updater may be of different
// bitness.

constexpr CLSID CLSID_InstallDispatcher6 = {
    0x3540DE9F, 0xC4F7, 0x4A44, {0xB3, 0x71, 0x36, 0x9C, 0x08, 0xD0, 0xA5, 0xB0}};
constexpr IID IID_InstallDispatcher6 = {
    0xF349007D, 0x4D30, 0x41F9, {0x89, 0xA3, 0x60, 0xEC, 0x4E, 0xEE, 0x1F, 0xCD}};
constexpr CLSID CLSID_InstallDispatcher5 = {
    0x1548BD36, 0x362D, 0x43B0, {0xBA, 0xBA, 0xC7, 0x3C, 0x52, 0xDD, 0xAD, 0xDB}};
constexpr IID IID_InstallDispatcher5 = {
    0x68CFA01F, 0x33BD, 0x40FA, {0xBE, 0x18, 0x29, 0x93, 0x0A, 0x1B, 0xE2, 0x42}};

// COM objects end by Release, so no interface has a virtual destructor (it would shift the operations).
#ifdef __GNUC__
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

struct IInstallDispatcher6 : IDispatch
{
    virtual HRESULT STDMETHODCALLTYPE ExecuteElevatedProcessAsync(LONG callerProcessId, BSTR file,
                                                                  BSTR parameters, BSTR workingFolder,
                                                                  LONG zero1, LONG zero2, LONG* process,
                                                                  LONG* secondHandle) = 0;
    /// Installs a Windows Installer package.
    virtual HRESULT STDMETHODCALLTYPE ExecuteElevatedMsiexecAsync(LONG callerProcessId, BSTR package,
                                                                  LONG one1, LONG one2, BSTR workingFolder,
                                                                  LONG zero1, LONG zero2, LONG* process,
                                                                  LONG* secondHandle) = 0;
};

struct IInstallDispatcher5 : IDispatch
{
    virtual HRESULT STDMETHODCALLTYPE ExecuteElevatedProcessAsync(LONG callerProcessId, BSTR file,
                                                                  BSTR parameters, BSTR workingFolder,
                                                                  LONG zero1, LONG zero2, LONG* process,
                                                                  LONG* secondHandle) = 0;
};

#ifdef __GNUC__
#pragma GCC diagnostic pop
#endif
