#pragma once

#include <windows.h>

#include <utility>

namespace LS::System::Win32
{
/// Sole owner of a system object, freed on every path. Traits name its type, its "none" value and how it is
/// freed:
///
///     struct RegistryKeyTraits
///     {
///         using Type = HKEY;
///         static Type None() noexcept { return nullptr; }
///         static void Free(Type key) noexcept { ::RegCloseKey(key); }
///     };
template <class Traits>
class CUniqueHandle
{
public:
    using Type = typename Traits::Type;

    CUniqueHandle() noexcept = default;
    explicit CUniqueHandle(Type handle) noexcept : m_Handle(handle) {}
    CUniqueHandle(CUniqueHandle&& other) noexcept : m_Handle(other.Detach()) {}
    CUniqueHandle(const CUniqueHandle&) = delete;
    CUniqueHandle& operator=(CUniqueHandle&& other) noexcept
    {
        Reset(other.Detach());
        return *this;
    }
    CUniqueHandle& operator=(const CUniqueHandle&) = delete;
    ~CUniqueHandle() { Reset(); }

    Type Get() const noexcept { return m_Handle; }
    explicit operator bool() const noexcept { return m_Handle != Traits::None(); }

    void Reset(Type handle = Traits::None()) noexcept
    {
        const Type old = std::exchange(m_Handle, handle);
        if (old != Traits::None())
            Traits::Free(old);
    }
    [[nodiscard]] Type Detach() noexcept { return std::exchange(m_Handle, Traits::None()); }

    /// For calls that return the object through a pointer; frees what was owned before.
    Type* Receive() noexcept
    {
        Reset();
        return &m_Handle;
    }

private:
    Type m_Handle = Traits::None();
};

/// Process, thread, event, mutex, token, mapping: closed with CloseHandle, "none" is null.
struct KernelHandleTraits
{
    using Type = HANDLE;
    static Type None() noexcept { return nullptr; }
    static void Free(Type handle) noexcept { ::CloseHandle(handle); }
};
using CKernelHandle = CUniqueHandle<KernelHandleTraits>;

/// From CreateFile: "none" is INVALID_HANDLE_VALUE.
struct FileHandleTraits
{
    using Type = HANDLE;
    static Type None() noexcept { return INVALID_HANDLE_VALUE; }
    static void Free(Type handle) noexcept { ::CloseHandle(handle); }
};
using CFileHandle = CUniqueHandle<FileHandleTraits>;

struct FindHandleTraits
{
    using Type = HANDLE;
    static Type None() noexcept { return INVALID_HANDLE_VALUE; }
    static void Free(Type handle) noexcept { ::FindClose(handle); }
};
using CFindHandle = CUniqueHandle<FindHandleTraits>;

struct RegistryKeyTraits
{
    using Type = HKEY;
    static Type None() noexcept { return nullptr; }
    static void Free(Type key) noexcept { ::RegCloseKey(key); }
};
using CRegistryKeyHandle = CUniqueHandle<RegistryKeyTraits>;

struct ModuleTraits
{
    using Type = HMODULE;
    static Type None() noexcept { return nullptr; }
    static void Free(Type module) noexcept { ::FreeLibrary(module); }
};
using CModuleHandle = CUniqueHandle<ModuleTraits>;
} // namespace LS::System::Win32
