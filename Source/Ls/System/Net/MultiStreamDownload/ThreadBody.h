#pragma once

#include "Ls/System/Win32/Thread.h"

#include <cstdint>

namespace LS::System::Net::MultiStreamDownload
{
/// Runs Execute of an object that is its own thread.
template <class Owner>
class CThreadBody final : public Win32::CThreadFunction
{
public:
    explicit CThreadBody(Owner& owner) noexcept : m_Owner(owner) {}
    std::uint32_t Execute(Win32::CThread& thread) override { return m_Owner.Execute(thread); }

private:
    Owner& m_Owner;
};
} // namespace LS::System::Net::MultiStreamDownload
