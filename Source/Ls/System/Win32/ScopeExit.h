#pragma once

#include <utility>

namespace LS::System::Win32
{
/// Runs an action at the end of the scope unless released: the way to roll back what a failure must not
/// leave behind. The action must not throw.
template <class Action>
class CScopeExit
{
public:
    explicit CScopeExit(Action action) : m_Action(std::move(action)) {}
    CScopeExit(const CScopeExit&) = delete;
    CScopeExit& operator=(const CScopeExit&) = delete;
    ~CScopeExit()
    {
        if (m_Armed)
            m_Action();
    }
    void Release() noexcept { m_Armed = false; }

private:
    Action m_Action;
    bool m_Armed = true;
};
} // namespace LS::System::Win32
