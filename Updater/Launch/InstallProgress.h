#pragma once

/// How far the running patch says it is: the percentage in its registry value "Install". 100 when there is no
/// value, 0 when nothing can be read (which is logged).
float ReadInstallPercent() noexcept;
