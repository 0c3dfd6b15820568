#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>

/// Entry 0 to 15 of a string table's block: 16 texts one after the other, each led by its length. Empty for
/// an entry that is missing, or that a damaged block doesn't hold whole.
std::wstring StringTableEntry(const wchar_t* block, std::size_t blockLength, std::uint32_t entry);

/// The text of that id in that language, and in no other; empty when there is none. Any thread.
std::wstring LoadStringTableText(HMODULE module, std::uint16_t id, LANGID language);
