#pragma once

#include <windows.h>

#include <string>

/// Whether a COM class is registered with a program that serves it; fills the folder of that program, without
/// a trailing backslash. A class without one, or with a registration that names no full path, gives false and
/// leaves the folder alone. Nothing tells whether the program is there.
bool GetServerPath(const CLSID& classId, std::wstring& folder);
