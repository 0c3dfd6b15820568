#pragma once

#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

#include <functional>
#include <initializer_list>
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

struct Failure
{
    std::function<void()> Action;
    /// Empty: the action must succeed.
    std::wstring Message;
    /// The last parts of the function's name.
    std::string Function = {};
    /// 0: any.
    std::uint32_t LastError = 0;
};

/// Each action, in this order, must fail as its row says.
inline void CheckFailures(std::initializer_list<Failure> rows)
{
    for (const Failure& row : rows)
    {
        CAPTURE(&row - rows.begin());
        const auto exception = Caught(row.Action);
        CHECK((exception ? exception->Message() : L"") == row.Message);
        if (!exception)
            continue;
        const std::string function = "::" + exception->Function();
        CHECK(function.substr(function.size() - std::min(function.size(), row.Function.size())) ==
              row.Function);
        CHECK((row.LastError == 0 || exception->LastError() == row.LastError));
    }
}
} // namespace Tests
