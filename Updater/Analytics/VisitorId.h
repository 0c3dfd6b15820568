#pragma once

#include <string>

/// The id that makes a user's runs recognisable as one visitor's: "VisitorID" in section "Analytics" of the
/// user's INI file, else the machine's, which is then copied to the user's, else a new UUID. A new one is
/// saved for the user only, since the machine's file is an administrator's matter. An id that can't be saved
/// serves this run. Throws CException when the system can't make a UUID.
std::wstring FindOrMakeVisitorId(const std::wstring& userIniPath, const std::wstring& machineIniPath);
