#pragma once
// Questions the application asks the user without a window to ask them in:
// each waits, with an identifier, until a client of the daemon answers it (the
// web page, over the API). The asker's callback judges the answer: it returns
// a one-line reason to refuse it (the question stays open), or nothing to
// accept it (the question is closed).
//
// Thread contract: main thread only.
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace quillon {

class QuestionBoard {
public:
    // Judges an answer: a reason to refuse it, or nothing to accept it.
    using Judge = std::function<std::optional<std::string>(const std::string& answer)>;

    struct Question {
        std::uint64_t id = 0;
        std::string kind;  // "chooseFolder", ...
        std::string key;   // the localisation key of the message
        std::string text;
        std::vector<std::string> choices;  // buttons; empty for a free answer
    };

    // Called with every new and every closed question (the event stream).
    explicit QuestionBoard(std::function<void(const nlohmann::json& event)> announce = {});

    std::uint64_t ask(Question question, Judge judge);
    // Nothing when accepted; else why not ("no such question" for an unknown id).
    std::optional<std::string> answer(std::uint64_t id, const std::string& answer);
    std::vector<Question> pending() const;

    static nlohmann::json toJson(const Question& question);

private:
    std::function<void(const nlohmann::json&)> announce_;
    std::map<std::uint64_t, std::pair<Question, Judge>> open_;
    std::uint64_t nextId_ = 1;
};

}  // namespace quillon
