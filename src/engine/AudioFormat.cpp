#include "engine/AudioFormat.h"

#include <array>
#include <utility>

#include "platform/TextUtil.h"

namespace quillon {

namespace {

constexpr std::array<std::pair<std::string_view, AudioFormat>, 7> kTypes{{
    {"audio/mpeg", AudioFormat::mp3},
    {"audio/aac", AudioFormat::aac},
    {"audio/aacp", AudioFormat::aac},
    {"audio/x-aac", AudioFormat::aac},
    {"application/ogg", AudioFormat::ogg},
    {"audio/ogg", AudioFormat::ogg},
    {"audio/opus", AudioFormat::opus},
}};

}  // namespace

AudioFormat audioFormatForContentType(std::string_view contentType) {
    const std::string type = toLowerAscii(trimmedBlanks(contentType.substr(0, contentType.find(';'))));
    for (const auto& [name, format] : kTypes)
        if (type == name) return format;
    return AudioFormat::mp3;
}

std::string_view fileExtension(AudioFormat format) {
    switch (format) {
        case AudioFormat::aac:
            return ".aac";
        case AudioFormat::ogg:
            return ".ogg";
        case AudioFormat::opus:
            return ".opus";
        case AudioFormat::mp3:
            break;
    }
    return ".mp3";
}

bool takesId3Tag(AudioFormat format) { return format == AudioFormat::mp3 || format == AudioFormat::aac; }

bool isRecordingExtension(std::string_view extension) {
    for (AudioFormat format : {AudioFormat::mp3, AudioFormat::aac, AudioFormat::ogg, AudioFormat::opus})
        if (extension == fileExtension(format)) return true;
    return false;
}

}  // namespace quillon
