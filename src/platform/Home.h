#pragma once
// Paths under the user's home folder: $QUILLON_HOME when set, else $HOME.
#include <optional>
#include <string>

namespace quillon {

// The home folder, without a trailing slash.
std::string homeFolder();
// home + "/" + relative.
std::string homePath(const std::string& relative);
// Joins two path parts with exactly one "/" between them.
std::string joinPath(const std::string& a, const std::string& b);
// Creates the folder and its parents; true when it exists afterwards.
bool makeFolders(const std::string& path);
bool fileExists(const std::string& path);
bool isFolder(const std::string& path);

}  // namespace quillon
