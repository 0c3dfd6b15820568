#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <oleauto.h>

#include <new>
#include <string>

template <class Interface>
struct InterfaceTraits
{
    using Type = Interface*;
    static Type None() noexcept { return nullptr; }
    static void Free(Type pointer) noexcept { pointer->Release(); }
};
/// One counted reference to a COM object.
template <class Interface>
using CInterfacePointer = LS::System::Win32::CUniqueHandle<InterfaceTraits<Interface>>;

struct BStrTraits
{
    using Type = BSTR;
    static Type None() noexcept { return nullptr; }
    static void Free(Type text) noexcept { ::SysFreeString(text); }
};
using CBStr = LS::System::Win32::CUniqueHandle<BStrTraits>;

/// A text for a COM call; the null BSTR for an empty one. Throws std::bad_alloc.
inline CBStr MakeBStr(const std::wstring& text)
{
    if (text.empty())
        return CBStr();
    CBStr result(::SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
    if (!result) // a null BSTR would tell the other side that the text is empty
        throw std::bad_alloc();
    return result;
}
