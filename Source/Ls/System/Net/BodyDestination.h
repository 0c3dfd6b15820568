#pragma once

#include "Ls/System/Net/HttpError.h"

#include <cstddef>

namespace LS::System::Net
{
/// Takes a body, block by block. Used by one thread at a time; destroying it gives the file back.
class CBodyDestination
{
public:
    CBodyDestination() = default;
    CBodyDestination(const CBodyDestination&) = delete;
    CBodyDestination& operator=(const CBodyDestination&) = delete;
    virtual ~CBodyDestination() = default;

    /// None, Write or DiskFull.
    virtual HttpError Write(const void* data, std::size_t size) = 0;
};
} // namespace LS::System::Net
