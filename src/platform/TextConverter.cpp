#include "platform/TextConverter.h"

#include <cerrno>
#include <stdexcept>

namespace quillon {

TextConverter::TextConverter(const std::string& to, const std::string& from)
    : cd_(::iconv_open(to.c_str(), from.c_str())) {
    if (cd_ == reinterpret_cast<iconv_t>(-1))
        throw std::invalid_argument("no conversion from " + from + " to " + to);
}

TextConverter::~TextConverter() { ::iconv_close(cd_); }

std::optional<std::string> TextConverter::convert(std::string_view text,
                                                  std::optional<std::string_view> replacement) {
    // Back to the initial shift state: nothing of an earlier call carries over.
    ::iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    std::string out;
    // iconv takes a non-const input pointer but does not write through it.
    char* in = const_cast<char*>(text.data());
    std::size_t inLeft = text.size();
    char buffer[1024];
    while (true) {
        char* to = buffer;
        std::size_t toLeft = sizeof buffer;
        const std::size_t done = ::iconv(cd_, inLeft > 0 ? &in : nullptr, &inLeft, &to, &toLeft);
        const int error = errno;
        out.append(buffer, static_cast<std::size_t>(to - buffer));
        if (done != static_cast<std::size_t>(-1)) {
            if (inLeft == 0) {
                // Flush what a stateful target still holds; a text that is all
                // converted was handed over with its end (the null input).
                char* end = buffer;
                std::size_t endLeft = sizeof buffer;
                ::iconv(cd_, nullptr, nullptr, &end, &endLeft);
                out.append(buffer, static_cast<std::size_t>(end - buffer));
                return out;
            }
            continue;
        }
        if (error == E2BIG) continue;
        // EILSEQ (undefined or unrepresentable) or EINVAL (cut off at the end).
        if (!replacement || inLeft == 0) return std::nullopt;
        out.append(*replacement);
        ++in;
        --inLeft;
        if (inLeft == 0) return out;
    }
}

}  // namespace quillon
