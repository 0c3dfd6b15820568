#pragma once

/// From here on libraries are searched for in the system folder only, so that nothing planted beside the
/// program (which often lies in a download folder) is loaded. Called before anything else; the libraries that
/// Windows may look for beside the program are loaded after that, by their full paths, at the first call.
/// Where Windows can, it also keeps out files of low integrity.
void SearchSystemFolderOnly() noexcept;
