#pragma once

#include <string>

/// What the tests use of the machine beside their temporary folder: registry keys and values, the folders
/// "Larkspur" below the application data, trusted roots. All of it is set aside before the tests and put back
/// after them. The state is on the machine (HKCU\Software\LsTestKit), so that a run that was killed, or a
/// machine that lost its power, is put right by the next start. One thread.
namespace Machine
{
/// The folder is the tests' temporary one, which goes when all is put back. Throws std::runtime_error, with
/// everything as it was, when a program uses one of the folders.
void SetAside(const std::wstring& temporary);

/// Nothing when nothing is set aside. Throws std::runtime_error when that needs rights that this process
/// lacks or a folder is in use; it can then be tried again.
void PutBack();

/// Lines that tell what machine it is.
std::string Describe();
} // namespace Machine
