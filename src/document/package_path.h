#pragma once

#include <filesystem>

namespace lumivesper::document {

// The one spelling of a package's path, made wherever a path enters (the command line, open and
// save, the recent list): absolute, without "." or ".." parts and without repeated or trailing
// separators, so that "Trip.lvesper/" (what shell completion gives), "./Trip.lvesper" and the full
// path name one package. Symbolic links stay as the user named them; an empty path stays empty.
std::filesystem::path normalisedPackagePath(const std::filesystem::path& path);

// Where a package chosen in the save panel goes: normalised, and with ".lvesper" added to a name
// typed without it.
std::filesystem::path packagePathForSaving(const std::filesystem::path& path);

} // namespace lumivesper::document
