#pragma once

#include <cstdint>
#include <string>

/// What one update query asks.
struct UpdateQuery
{
    std::wstring ProductName;
    std::string InstalledVersion;
    /// Name and version of this program, for the user agent.
    std::string ProgramName;
    std::string ProgramVersion;
    /// Whether the service may hold the update back to spread its load.
    bool Throttling = true;
};

/// The query's URL. Nothing in it is escaped but "#", which would cut off what follows: the service splits
/// the parameter text at "|" and ":".
std::string UpdateQueryURL(const std::string& host, const UpdateQuery& query);

/// Asks the update service whether there is a patch for the installed version and waits for the answer, 5000
/// ms at most. Returns 0 and the patch's URL, empty when there is no update, or an ExitCodes::Query... code.
std::int32_t GetPatchURL(const UpdateQuery& query, std::string& patchURL);
