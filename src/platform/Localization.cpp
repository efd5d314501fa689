#include "platform/Localization.h"

#include <optional>

#include "platform/Resources.h"

namespace quillon {

namespace {

class StringsParser {
public:
    explicit StringsParser(std::string_view text) : text_(text) {}

    std::map<std::string, std::string, std::less<>> parse() {
        std::map<std::string, std::string, std::less<>> table;
        while (skipSpaceAndComments()) {
            auto key = quoted();
            skipSpaceAndComments();
            bool hasEquals = consume('=');
            skipSpaceAndComments();
            auto value = hasEquals ? quoted() : std::nullopt;
            skipSpaceAndComments();
            consume(';');
            if (key && value) {
                table[*key] = *value;
            } else {
                skipLine();
            }
        }
        return table;
    }

private:
    bool skipSpaceAndComments() {
        while (pos_ < text_.size()) {
            char c = text_[pos_];
            if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
                ++pos_;
            } else if (text_.substr(pos_, 2) == "/*") {
                auto end = text_.find("*/", pos_ + 2);
                pos_ = end == std::string_view::npos ? text_.size() : end + 2;
            } else if (text_.substr(pos_, 2) == "//") {
                skipLine();
            } else {
                return true;
            }
        }
        return false;
    }

    void skipLine() {
        auto end = text_.find('\n', pos_);
        pos_ = end == std::string_view::npos ? text_.size() : end + 1;
    }

    bool consume(char c) {
        if (pos_ < text_.size() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }

    std::optional<std::string> quoted() {
        if (!consume('"')) return std::nullopt;
        std::string out;
        while (pos_ < text_.size()) {
            char c = text_[pos_++];
            if (c == '"') return out;
            if (c == '\\' && pos_ < text_.size()) {
                char e = text_[pos_++];
                out += e == 'n' ? '\n' : e == 't' ? '\t' : e;
            } else {
                out += c;
            }
        }
        return std::nullopt;
    }

    std::string_view text_;
    std::size_t pos_ = 0;
};

const std::map<std::string, std::string, std::less<>>& table() {
    static const auto table = parseStringsFile(resource("Localizable.strings").value_or(""));
    return table;
}

}  // namespace

std::map<std::string, std::string, std::less<>> parseStringsFile(std::string_view text) {
    return StringsParser(text).parse();
}

std::string localized(std::string_view key, std::string_view defaultText) {
    auto it = table().find(key);
    return it != table().end() ? it->second : std::string(defaultText);
}

}  // namespace quillon
