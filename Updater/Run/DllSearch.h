#pragma once

/// From here on libraries are searched for in the system folder only, so that nothing planted beside the
/// program (which often lies in a download folder) is loaded. Called before anything else.
void SearchSystemFolderOnly() noexcept;
