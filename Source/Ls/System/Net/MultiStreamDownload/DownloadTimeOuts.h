#pragma once

#include "Ls/System/Io/FilePatience.h"
#include "Ls/System/Net/ReceivePace.h"

#include <cstdint>

namespace LS::System::Net::MultiStreamDownload
{
/// How long a download waits for the network and for others, in ms. The program keeps the defaults; a shorter
/// time makes a server that stalls and a file that stays held cheap to test.
struct DownloadTimeOuts
{
    std::uint32_t ConnectMs = 30000;
    std::uint32_t SendMs = 30000;
    /// Without any byte arriving, for the head of an answer and for each piece of its body.
    std::uint32_t ReceiveMs = 30000;
    /// With bytes arriving: a server that brings less is given up.
    LeastPace Pace = {};
    /// Until the whole file can be moved to its place.
    std::uint32_t MoveMs = IO::CFilePatience::LimitMs;
};
} // namespace LS::System::Net::MultiStreamDownload
