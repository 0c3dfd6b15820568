#pragma once

#include <cstdint>

/// Every exit code of the program: what the caller, who has nothing else, learns about a run that went
/// wrong. Each stage has a range of 256; a code is never given a second meaning.
namespace ExitCodes
{
// Ends that are no failure of the program.
inline constexpr std::int32_t Done = 0;     ///< the patch ran (its own exit code isn't passed on)
inline constexpr std::int32_t Offline = 2;  ///< not online; the run was given "/from="
inline constexpr std::int32_t NoUpdate = 3; ///< the service knows no patch for the installed version
inline constexpr std::int32_t Declined = 4; ///< the user answered No

// The run as a whole.
inline constexpr std::int32_t UnknownException = 256;
inline constexpr std::int32_t ProductNameRequired = 257;
inline constexpr std::int32_t SecondInstance = 258;        ///< another run for this product is under way
inline constexpr std::int32_t OfflineInFallbackMode = 259; ///< not online; the run was given no "/from="
inline constexpr std::int32_t PublisherRefused = 260; ///< the patch isn't signed by an accepted publisher
inline constexpr std::int32_t Exception = 261;        ///< a CException; the log has its text

// Progress dialog.
inline constexpr std::int32_t DialogNotCreated = 513;
inline constexpr std::int32_t SecondDialog = 514;
inline constexpr std::int32_t DialogWaitFailed = 515;

// Update query.
inline constexpr std::int32_t QueryNotCreated = 768; ///< the request's URL can't be used
inline constexpr std::int32_t QueryTimeOut = 770;    ///< no whole answer within the time limit
inline constexpr std::int32_t QueryBadLength = 771;  ///< the answer doesn't tell its length
inline constexpr std::int32_t QueryNoResponse = 772; ///< the request didn't end well
inline constexpr std::int32_t QueryNoXmlDeclaration = 773;
inline constexpr std::int32_t QueryNoStringElement = 774;
inline constexpr std::int32_t QueryBadStringNode = 775;  ///< the element's start tag isn't closed
inline constexpr std::int32_t QueryBadStringValue = 776; ///< the element's value isn't closed

// Patch fetch.
inline constexpr std::int32_t NoDataFolder = 1024; ///< the application-data folder can't be obtained
inline constexpr std::int32_t OldPatchNotDeleted = 1025;
inline constexpr std::int32_t FetchNotCreated = 1026; ///< the patch's URL can't be used
inline constexpr std::int32_t FetchFailed = 1027;

// Launch.
inline constexpr std::int32_t ComNotInitialized = 1280;
inline constexpr std::int32_t PatchNotStarted = 1281; ///< or nothing tells whether it has ended

// Program-files folder, which the client's path is made of.
inline constexpr std::int32_t Wow64Unknown = 1536; ///< the system doesn't tell whether this is WOW64
inline constexpr std::int32_t NoProgramFilesFolder = 1537;

// Park.
inline constexpr std::int32_t ParkNotFound = 1792;
inline constexpr std::int32_t ParkNotCopied = 1793;
inline constexpr std::int32_t ParkNotStarted = 1794;
} // namespace ExitCodes
