#pragma once
// The audio format of a stream, as its "Content-Type:" names it, and what
// follows from it for the track files: their extension, whether an ID3 tag
// goes at their head, and whether cuts look for frame starts.
// Pure functions, safe on any thread.
#include <string_view>

namespace quillon {

enum class AudioFormat { mp3, aac, ogg, opus };

// "audio/aacp; charset=..." -> aac. Parameters are ignored and case does not
// matter; an absent or unknown type is MP3, what ICY servers sent first.
AudioFormat audioFormatForContentType(std::string_view contentType);

// ".mp3", ".aac", ".ogg", ".opus".
std::string_view fileExtension(AudioFormat format);

// MP3 and ADTS AAC players skip an ID3v2 tag at the head of a file; an Ogg
// file must begin with its first page ("OggS"), so it gets none.
bool takesId3Tag(AudioFormat format);

// Whether a file's extension (".mp3", case as written) is one that recordings
// get: the files the history takes when added by hand.
bool isRecordingExtension(std::string_view extension);

}  // namespace quillon
