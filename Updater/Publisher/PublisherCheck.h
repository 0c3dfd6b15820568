#pragma once

#include <span>
#include <string>
#include <string_view>

// A patch runs with the user's rights, so it must carry a valid Authenticode signature of an accepted
// publisher. The checks never throw: whatever goes wrong is a refusal. They read the file by its path, so the
// caller keeps it from being changed meanwhile (CCheckedPatch).

/// Signed by the maker of this program.
bool IsFileLarkspurSigned(const std::wstring& path) noexcept;
/// Signed by the publisher of BlueStacks.
bool IsFileBlueStacksSigned(const std::wstring& path) noexcept;
/// Signed by one of the publishers, each a whole component of a subject name ("2.5.4.10=Larkspur Inc.").
bool IsFileSignedBy(const std::wstring& path, std::span<const std::string_view> publishers) noexcept;
