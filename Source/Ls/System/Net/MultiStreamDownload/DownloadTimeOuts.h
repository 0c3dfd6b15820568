#pragma once

#include "Ls/System/Net/ReceivePace.h"

#include <cstdint>

namespace LS::System::Net::MultiStreamDownload
{
/// How long a stream waits for the network, in ms. The program keeps the defaults; a shorter time makes a
/// server that stalls cheap to test.
struct DownloadTimeOuts
{
    std::uint32_t ConnectMs = 30000;
    std::uint32_t SendMs = 30000;
    /// Without any byte arriving, for the head of an answer and for each piece of its body.
    std::uint32_t ReceiveMs = 30000;
    /// With bytes arriving: a server that brings less is given up.
    LeastPace Pace = {};
};
} // namespace LS::System::Net::MultiStreamDownload
