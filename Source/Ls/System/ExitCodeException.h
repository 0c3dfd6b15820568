#pragma once

#include <cstdint>

namespace LS::System
{
/// Ends the run with this process exit code; thrown by value by the application, caught by its driver.
class CExitCodeException
{
public:
    explicit CExitCodeException(std::int32_t exitCode) noexcept : m_ExitCode(exitCode) {}
    std::int32_t ExitCode() const noexcept { return m_ExitCode; }

private:
    std::int32_t m_ExitCode;
};
} // namespace LS::System
