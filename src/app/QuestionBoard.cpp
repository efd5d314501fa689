#include "app/QuestionBoard.h"

namespace quillon {

QuestionBoard::QuestionBoard(std::function<void(const nlohmann::json&)> announce)
    : announce_(std::move(announce)) {}

std::uint64_t QuestionBoard::ask(Question question, Judge judge) {
    question.id = nextId_++;
    if (announce_) {
        nlohmann::json event = toJson(question);
        event["type"] = "question";
        announce_(event);
    }
    std::uint64_t id = question.id;
    open_.emplace(id, std::make_pair(std::move(question), std::move(judge)));
    return id;
}

std::optional<std::string> QuestionBoard::answer(std::uint64_t id, const std::string& answer) {
    auto it = open_.find(id);
    if (it == open_.end()) return "no such question";
    if (auto refusal = it->second.second(answer)) return refusal;
    open_.erase(it);
    if (announce_) announce_({{"type", "answered"}, {"id", id}});
    return std::nullopt;
}

std::vector<QuestionBoard::Question> QuestionBoard::pending() const {
    std::vector<Question> out;
    for (const auto& [id, entry] : open_) out.push_back(entry.first);
    return out;
}

nlohmann::json QuestionBoard::toJson(const Question& q) {
    return {{"id", q.id}, {"kind", q.kind}, {"key", q.key}, {"text", q.text}, {"choices", q.choices}};
}

}  // namespace quillon
