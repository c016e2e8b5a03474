#include "net/version_reply.h"

#include <fmt/format.h>
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include "text/remote_text.h"

namespace vosk::net {
namespace {

using ErrorLines = std::vector<std::string>;

// A document with limited nesting: the parser calls itself for each level, so a body full of
// brackets would exhaust the stack.
class ReplyDocument : public rapidjson::Document {
 public:
  rapidjson::ParseResult ParseReply(const std::string& body) {
    rapidjson::StringStream stream(body.c_str());
    rapidjson::Reader reader;
    rapidjson::ParseResult outcome;
    const auto parse = [&](rapidjson::Document&) {
      outcome = reader.Parse<rapidjson::kParseDefaultFlags>(stream, *this);
      return !outcome.IsError();
    };
    Populate(parse);
    return outcome;
  }

  // Called by the parser.
  bool StartObject() { return ++depth_ <= kDeepest && GenericDocument::StartObject(); }
  bool StartArray() { return ++depth_ <= kDeepest && GenericDocument::StartArray(); }
  bool EndObject(rapidjson::SizeType members) {
    --depth_;
    return GenericDocument::EndObject(members);
  }
  bool EndArray(rapidjson::SizeType elements) {
    --depth_;
    return GenericDocument::EndArray(elements);
  }

 private:
  static constexpr int kDeepest = 256;
  int depth_ = 0;
};

const rapidjson::Value* FindMember(const rapidjson::Value& root, const char* name) {
  if (!root.IsObject()) return nullptr;
  const auto member = root.FindMember(name);
  return member != root.MemberEnd() ? &member->value : nullptr;
}

std::string TextOf(const rapidjson::Value& value) {
  return text::RemoteValue({value.GetString(), value.GetStringLength()});
}

}  // namespace

tl::expected<std::string, ErrorLines> ReadVersionReply(const std::string& body) {
  ReplyDocument reply;
  if (const auto parsed = reply.ParseReply(body); parsed.IsError()) {
    return tl::unexpected(ErrorLines{
        fmt::format("FetchVersion: Failed to parse JSON response. Error: {} at offset {}",
                    rapidjson::GetParseError_En(parsed.Code()), parsed.Offset())});
  }
  const rapidjson::Value* result = FindMember(reply, "result");
  if (result == nullptr || !result->IsInt() || result->GetInt() != 0) {
    ErrorLines lines{"FetchVersion: JSON response missing 'result: 0'."};
    const rapidjson::Value* description = FindMember(reply, "errorDescription");
    if (description != nullptr && description->IsString()) {
      lines.push_back(fmt::format("FetchVersion: API Error: {}", TextOf(*description)));
    }
    return tl::unexpected(std::move(lines));
  }
  const rapidjson::Value* version = FindMember(reply, "version");
  if (version == nullptr || !version->IsString()) {
    return tl::unexpected(ErrorLines{"FetchVersion: JSON response missing 'version' string."});
  }
  return TextOf(*version);
}

}  // namespace vosk::net
