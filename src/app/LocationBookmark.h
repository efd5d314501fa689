#pragma once
// Turning what the user typed on the command line into a bookmark: a saved
// bookmark (by name or .qlnbk file), or a location (stream URL, playlist URL,
// local playlist file) resolved over the network. Main thread only: it runs the
// main loop while the location is fetched.
#include <memory>
#include <optional>
#include <string>

#include "platform/ByteBuffer.h"

namespace quillon {

class Bookmark;

// A bookmark for a location, named `name` when that is not empty, else by what
// the location gives. Nothing, with the reason in `failure`, when the server
// gives no stream. Throws BadInput for bad input: an empty location, a
// malformed URL, a local file that is missing, unreadable or names no stream.
std::shared_ptr<Bookmark> bookmarkFromLocation(const std::string& location, const std::string& name,
                                               std::string& failure);

// A saved bookmark's file path or name (as `quillon bookmark list` shows it,
// or as it was given), a stream URL taken as it stands (named after its host),
// else a playlist location as above. Throws BadInput as above, and for a
// name that matches nothing or a bookmark file without a stream address.
std::shared_ptr<Bookmark> bookmarkFromArgument(const std::string& argument, std::string& failure);

// Throws BadInput for a location that cannot be probed: empty, a malformed
// URL, or a local file that is missing, a folder or unreadable.
// Gives a local playlist file's contents, read once; nothing for a URL.
std::optional<Bytes> checkLocation(const std::string& location);
// Whether the location is a URL rather than a local file.
bool isRemoteLocation(const std::string& location);
// The stream a probed location's header describes, the location itself being
// the stream: for an ICY header (`live`), or an HTTP one announcing audio.
std::shared_ptr<Bookmark> bookmarkFromHeader(const std::string& location, const std::string& header,
                                             bool live);
// Whether the bookmark has a host and a port to connect to.
bool usableBookmark(const Bookmark& bookmark);

// Whether a URL path names a playlist (.pls, .m3u, ...) rather than a stream.
bool looksLikePlaylist(const std::string& path);

}  // namespace quillon
