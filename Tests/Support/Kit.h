#pragma once

#include "Ls/System/Io/Path.h"

#include <filesystem>

namespace Tests
{
/// Full path of what lies in the folder of the test programs, which the build and the kit for Windows lay out
/// alike: "Updater.exe" and the stand-ins, "Samples" (signed patches, certificates), and in "Other" the
/// elevation service of the other bitness, which may be missing.
inline std::filesystem::path InKit(const std::wstring& name)
{
    return std::filesystem::path(LS::System::IO::ProgramPath()).parent_path() / name;
}
} // namespace Tests
