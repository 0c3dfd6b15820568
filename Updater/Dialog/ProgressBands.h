#pragma once

#include <functional>
#include <optional>

/// Takes the progress of the whole run, 0 to 100; empty when nothing shows it.
using ProgressSink = std::function<void(int)>;

/// Where the run stands at a percentage of the download: 20 to 50.
int DownloadBand(float percent) noexcept;

/// Where the run stands at a percentage of the installation: 55 to 100. Nothing from 100 on, and for a
/// reading that isn't a number: the bar stays where it is. Negative readings go below the band.
std::optional<int> InstallBand(float percent) noexcept;
