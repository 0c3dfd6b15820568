#pragma once

#include <string>

namespace LS::System::IO
{
/// Whether a folder is a junction or a symbolic link, and so really lies elsewhere; false also when there is
/// none. (Not for other marks on folders, such as those of cloud storage.)
bool IsLink(const std::wstring& folder) noexcept;
} // namespace LS::System::IO
