#pragma once

#include "Ls/System/Exception.h"

#include <cstdint>
#include <string_view>

namespace LS::System
{
/// What is being handled, as a CException: one that is handled as it is, anything else by its text and, with
/// LS_HERE, the place of the handler. Empty when there is no memory for it. Only within a catch block.
CRefPtr<const CException> HandledException(std::string_view function, std::int32_t line,
                                           std::string_view file) noexcept;
} // namespace LS::System
