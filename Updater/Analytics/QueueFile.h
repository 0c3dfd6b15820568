#pragma once

#include "Ls/System/Win32/UniqueHandle.h"
#include "Updater/Analytics/QueueStorage.h"

#include <string>

/// A queue's storage in a file, open for as long as this object lives and shared for reading and writing.
class CQueueFile : public CQueueStorage
{
public:
    /// Opens or makes the file. A file that another program holds for a moment (a scanner, a backup) is
    /// waited for, up to patienceMs.
    explicit CQueueFile(const std::wstring& path, std::uint32_t patienceMs = ShortPatienceMs) noexcept;

    /// For what can as well be done later.
    static constexpr std::uint32_t ShortPatienceMs = 100;

    bool IsOpen() const noexcept { return static_cast<bool>(m_File); }

    std::optional<std::uint64_t> Size() override;
    std::optional<std::string> ReadAt(std::uint64_t position, std::size_t size) override;
    bool WriteAt(std::uint64_t position, std::string_view bytes) override;
    bool SetSize(std::uint64_t size) override;

private:
    bool Seek(std::uint64_t position) noexcept;

    LS::System::Win32::CFileHandle m_File;
};
