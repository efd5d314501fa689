#include "app/ApiRequest.h"

#include <algorithm>
#include <charconv>

namespace quillon {

ApiRequest::ApiRequest(std::string method, std::vector<std::string> params,
                       std::map<std::string, std::string> query, nlohmann::json body)
    : method_(std::move(method)),
      params_(std::move(params)),
      query_(std::move(query)),
      body_(std::move(body)) {
    if (body_.is_null()) body_ = nlohmann::json::object();
}

const std::string& ApiRequest::param(std::size_t index) const {
    static const std::string none;
    return index < params_.size() ? params_[index] : none;
}

std::uint64_t ApiRequest::idParam(std::size_t index) const {
    const std::string& text = param(index);
    std::uint64_t id = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty())
        throw ApiError(404, "no such item: " + text);
    return id;
}

std::optional<std::string> ApiRequest::query(const std::string& name) const {
    auto it = query_.find(name);
    if (it == query_.end()) return std::nullopt;
    return it->second;
}

void ApiRequest::allowOnly(std::initializer_list<const char*> fields) const {
    for (const auto& [key, value] : body_.items()) {
        bool known = std::any_of(fields.begin(), fields.end(), [&](const char* f) { return key == f; });
        if (!known) throw ApiError(400, "unknown field: " + key);
    }
}

const nlohmann::json* ApiRequest::field(const char* name) const {
    auto it = body_.find(name);
    return it == body_.end() ? nullptr : &*it;
}

std::optional<bool> ApiRequest::optionalBool(const char* name) const {
    const nlohmann::json* v = field(name);
    if (!v) return std::nullopt;
    if (!v->is_boolean()) throw ApiError(400, std::string(name) + " must be true or false");
    return v->get<bool>();
}

std::optional<std::string> ApiRequest::optionalString(const char* name) const {
    const nlohmann::json* v = field(name);
    if (!v) return std::nullopt;
    if (!v->is_string()) throw ApiError(400, std::string(name) + " must be a text");
    return v->get<std::string>();
}

std::string ApiRequest::requiredString(const char* name) const {
    auto v = optionalString(name);
    if (!v) throw ApiError(400, std::string(name) + " is missing");
    return *v;
}

std::optional<std::int64_t> ApiRequest::optionalInt(const char* name, std::int64_t min,
                                                    std::int64_t max) const {
    const nlohmann::json* v = field(name);
    if (!v) return std::nullopt;
    if (!v->is_number_integer()) throw ApiError(400, std::string(name) + " must be a whole number");
    auto n = v->get<std::int64_t>();
    if (n < min || n > max)
        throw ApiError(400, std::string(name) + " must lie between " + std::to_string(min) + " and " +
                                std::to_string(max));
    return n;
}

std::optional<std::vector<std::string>> ApiRequest::optionalStrings(const char* name) const {
    const nlohmann::json* v = field(name);
    if (!v) return std::nullopt;
    std::vector<std::string> out;
    if (!v->is_array()) throw ApiError(400, std::string(name) + " must be a list of texts");
    for (const auto& item : *v) {
        if (!item.is_string()) throw ApiError(400, std::string(name) + " must be a list of texts");
        out.push_back(item.get<std::string>());
    }
    return out;
}

nlohmann::json errorBody(const std::string& reason) { return nlohmann::json{{"error", reason}}; }

ApiReply replyFor(const OperationResult& result, int doneStatus) {
    switch (result.status) {
        case OperationResult::Status::BadInput:
            throw ApiError(400, result.error);
        case OperationResult::Status::NotFound:
            throw ApiError(404, result.error);
        case OperationResult::Status::Conflict:
            throw ApiError(409, result.error);
        case OperationResult::Status::Failed:
            throw ApiError(500, result.error);
        case OperationResult::Status::Done:
            break;
    }
    return {doneStatus, result.value};
}

}  // namespace quillon
