#include "Ls/System/HandledException.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/String/DecimalText.h"

#include <exception>

namespace LS::System
{
namespace
{
CRefPtr<const CException> Describe(std::string_view function, std::int32_t line, std::string_view file)
{
    try
    {
        throw;
    }
    catch (const CException& exception)
    {
        return MakeRef<const CException>(exception);
    }
    catch (const CExitCodeException& exception)
    {
        return MakeRef<const CException>(L"Exit code " + DecimalText(exception.ExitCode()), function, line,
                                         file);
    }
    catch (const std::exception& exception)
    {
        return MakeRef<const CException>(std::string(exception.what()), function, line, file);
    }
    catch (...)
    {
        return MakeRef<const CException>(L"Unknown exception", function, line, file);
    }
}
} // namespace

CRefPtr<const CException> HandledException(std::string_view function, std::int32_t line,
                                           std::string_view file) noexcept
{
    try
    {
        return Describe(function, line, file);
    }
    catch (...)
    {
        return {};
    }
}
} // namespace LS::System
