#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Picks the patch URL out of the update service's XML answer by plain text search: the text of the first
/// string element, taken as it is (no entities decoded, nothing trimmed). An empty one means that there is
/// no update. Returns 0, or an ExitCodes::Query... and leaves patchURL alone.
std::int32_t ParseUpdateAnswer(std::string_view answer, std::string& patchURL);
