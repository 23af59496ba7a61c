// Reads JSON text and tells what is in it, each thing with its place in the text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace vorn::tool {

// Containers nested deeper are refused.
constexpr size_t kMaxJsonDepth = 1000;

// Byte offsets into the text; end is one past the last.
struct TextRange {
    size_t begin;
    size_t end;
};

// An integer that does not fit into 64 bits with sign.
struct BigInteger {};

using JsonScalar = std::variant<std::nullptr_t, bool, int64_t, double, std::string, BigInteger>;

enum class JsonContainer { eObject, eArray };

class JsonEvents {
public:
    virtual ~JsonEvents() = default;

    // The opening bracket; and the closing one.
    virtual void onBegin(JsonContainer container, size_t bracketAt) = 0;
    virtual void onEnd(size_t bracketAt) = 0;

    // The name of the member that follows, quotes included in the range.
    virtual void onName(std::string& name, TextRange range) = 0;

    virtual void onScalar(JsonScalar& scalar, TextRange range) = 0;
};

// Throws JsonSyntaxError for text that is no JSON (broken UTF-8 included), and ToolError for a
// number past every float and for nesting too deep. source names the text in messages.
void scanJson(std::string_view text, const std::string& source, JsonEvents& events);

} // namespace vorn::tool
