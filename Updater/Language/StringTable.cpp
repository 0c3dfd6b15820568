#include "Updater/Language/StringTable.h"

namespace
{
constexpr std::uint32_t TextsInBlock = 16;
}

std::wstring StringTableEntry(const wchar_t* block, std::size_t blockLength, std::uint32_t entry)
{
    std::size_t position = 0;
    for (std::uint32_t i = 0; i < TextsInBlock && position < blockLength; ++i)
    {
        const std::size_t length = block[position++];
        if (length > blockLength - position)
            return {};
        if (i == entry)
            return {block + position, length};
        position += length;
    }
    return {};
}

std::wstring LoadStringTableText(HMODULE module, std::uint16_t id, LANGID language)
{
    const HRSRC resource =
        ::FindResourceExW(module, RT_STRING, MAKEINTRESOURCEW(id / TextsInBlock + 1), language);
    if (!resource)
        return {};
    const HGLOBAL block = ::LoadResource(module, resource); // part of the module: nothing to free
    const void* const texts = block ? ::LockResource(block) : nullptr;
    if (!texts)
        return {};
    return StringTableEntry(static_cast<const wchar_t*>(texts),
                            ::SizeofResource(module, resource) / sizeof(wchar_t), id % TextsInBlock);
}
