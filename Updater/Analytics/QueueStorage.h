#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The bytes that a queue lives in. A failure is an empty or false result: whoever asked gives up, and the
/// system's last error says why.
class CQueueStorage
{
public:
    virtual ~CQueueStorage() = default;

    virtual std::optional<std::uint64_t> Size() = 0;
    /// Up to size bytes; fewer only where the storage ends.
    virtual std::optional<std::string> ReadAt(std::uint64_t position, std::size_t size) = 0;
    /// All of the bytes; writing at the end makes the storage longer.
    virtual bool WriteAt(std::uint64_t position, std::string_view bytes) = 0;
    virtual bool SetSize(std::uint64_t size) = 0;

protected:
    CQueueStorage() = default;
    CQueueStorage(const CQueueStorage&) = default;
    CQueueStorage& operator=(const CQueueStorage&) = default;
};
