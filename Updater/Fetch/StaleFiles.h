#pragma once

#include <string>

/// Deletes what earlier runs left in a product's data folder (with a backslash at its end) and nobody uses:
/// all programs and packages (Park copies, patches: .exe, .msi) that came to the folder, and were last
/// written, more than 30 days ago, and the unfinished downloads of patches as old (PATCH.cache,
/// .downloadstate, .0, .1). The patch of this name and its download stay, and so do other files, folders and
/// links. A file in use stays silently: it is nobody's failure.
void DeleteStaleFiles(const std::wstring& dataFolder, const std::wstring& patchName) noexcept;
