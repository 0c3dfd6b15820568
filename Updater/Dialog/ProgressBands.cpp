#include "Updater/Dialog/ProgressBands.h"

#include <algorithm>

int DownloadBand(float percent) noexcept
{
    return 20 + static_cast<int>(percent * 0.3 + 0.499);
}

std::optional<int> InstallBand(float percent) noexcept
{
    if (!(percent < 100.0F))
        return std::nullopt;
    // The reading is whatever stands in the registry; the lower bound keeps it within an int.
    return 55 + static_cast<int>(std::max(percent * 0.45 + 0.499, -1.0e9));
}
