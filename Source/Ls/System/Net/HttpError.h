#pragma once

#include <cstdint>

namespace LS::System::Net
{
/// How a transfer ended. The numbers go into logs and reports: none is ever given a second meaning.
enum class HttpError : std::uint32_t
{
    None = 0,
    Start = 1,     ///< the worker could not be started
    Session = 4,   ///< the internet session could not be opened
    Connect = 5,   ///< the server could not be reached: its name, its port
    Send = 6,      ///< the request could not be sent, or no whole head of an answer came in time
    Read = 7,      ///< the body broke off, or nothing or too little more of it came in time
    BadAnswer = 8, ///< no status, a redirect that can't be followed, or another range than the one asked for
    Write = 9,     ///< the body could not be written, or grew beyond what memory takes
    DiskFull = 10, ///< the body could not be written because the disk is full
    Stopped = 11,  ///< the owner let go
    Internal = 12, ///< something unforeseen (memory); the log tells
    TooLarge = 13, ///< the file would be longer than the owner takes
};
} // namespace LS::System::Net
