#pragma once

#include <string>
#include <string_view>

/// The folder of a product's patches and Park copies, "<application data>\Larkspur\Updater\<product>\", made
/// when missing (when that fails, what is to be put there will fail). The product's name must be a plain
/// file name. Throws CExitCodeException 1024, in a run that follows no links
/// also when one leads from there to elsewhere.
std::wstring GetDataDir(const std::wstring& productName);

/// Fills patchPath with the place for the patch of this URL and deletes what an earlier run left there, with
/// what nobody uses any more (DeleteStaleFiles). Throws CExitCodeException 1024 as GetDataDir does, also for
/// a link in the place of one of the fetch's files, 1025 when the old file can't be deleted, and 1027, before
/// anything is made, for a file name that isn't a patch's.
void SetupFilePathAndName(const std::wstring& productName, bool isBlueStacks, std::wstring& patchPath,
                          const std::string& url);

/// True for a plain file name (IsPlainFileName) that ends in ".exe", or in ".msi" for BlueStacks, in any
/// case.
bool IsPatchFileName(std::wstring_view fileName, bool isBlueStacks) noexcept;

/// "%41" becomes "A"; a "%" without two hexadecimal digits behind it stays.
std::string PercentDecode(std::string_view text);

/// The decoded URL's last path component, which may be empty or anything else. Each byte becomes the
/// character of its number.
std::wstring PatchFileName(std::string_view url);
