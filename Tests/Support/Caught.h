#pragma once

#include "Ls/System/Exception.h"

#include <functional>
#include <optional>

namespace Tests
{
/// The CException that the action ends with; nothing when it ends without. Other exceptions pass.
inline std::optional<LS::System::CException> Caught(const std::function<void()>& action)
{
    try
    {
        action();
    }
    catch (const LS::System::CException& exception)
    {
        return exception;
    }
    return std::nullopt;
}

/// Its message; empty when there was no exception.
inline std::wstring CaughtMessage(const std::function<void()>& action)
{
    const auto exception = Caught(action);
    return exception ? exception->Message() : std::wstring();
}
} // namespace Tests
