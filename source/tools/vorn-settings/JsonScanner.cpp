// The bridge from the JSON parser's events to events with places.
//
// The parser says what it met but not where. It takes the text byte by byte through an iterator
// that counts, so when it reports a token its end is known; and between two tokens there are only
// blanks, commas and colons, so its begin is known from the end of the token before.
#include "JsonScanner.h"

#include "TextPlace.h"
#include "ToolError.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>

namespace vorn::tool {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kBetweenTokens = " \t\r\n,:";
constexpr std::string_view kNumberBytes = "+-.0123456789eE";

// Steps through the text and keeps a count of the bytes taken in a place that outlives its copies.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(std::string_view text, size_t at, size_t* reached)
        : m_text(text), m_at(at), m_reached(reached) {}

    reference operator*() const {
        return m_text[m_at];
    }
    CountingIterator& operator++() {
        *m_reached = ++m_at;
        return *this;
    }
    bool operator==(const CountingIterator& other) const {
        return m_at == other.m_at;
    }

private:
    std::string_view m_text;
    size_t m_at;
    size_t* m_reached;
};

// What the parser expected and what it found instead.
struct Complaint {
    std::string expected;
    std::string found;
};

// The parser's names of tokens in words for people.
std::string plainName(const std::string& token) {
    if (token == "'[', '{', or a literal") {
        return "a value";
    }
    if (token == "string literal") {
        return "a string";
    }
    return token == "number literal" ? "a number" : token;
}

// From "... while parsing object - unexpected ']'; expected '}'" and the like.
Complaint readComplaint(const std::string& message) {
    constexpr std::string_view kExpected = "; expected ";
    constexpr std::string_view kUnexpected = "unexpected ";
    std::string found = message.substr(message.find(" - ") + 3);
    std::string expected = "a value";
    if (const size_t at = found.rfind(kExpected); at != std::string::npos) {
        expected = found.substr(at + kExpected.size());
        found.resize(at);
    }
    if (expected == "'}'" || expected == "']'") {
        expected = "',' or " + expected;
    }
    found.resize(std::min(found.find("; last read:"), found.size()));
    if (found.starts_with(kUnexpected)) {
        found.erase(0, kUnexpected.size());
    }
    return {plainName(expected), plainName(found)};
}

// The parser's side of the bridge.
class Tracker {
public:
    using number_integer_t = nlohmann::json::number_integer_t;
    using number_unsigned_t = nlohmann::json::number_unsigned_t;
    using number_float_t = nlohmann::json::number_float_t;
    using string_t = nlohmann::json::string_t;
    using binary_t = nlohmann::json::binary_t;

    Tracker(std::string_view text, const std::string& source, JsonEvents& events)
        : m_text(text), m_source(source), m_events(events) {}

    void scan() {
        m_end = m_text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
        if (m_text.find_first_not_of(kBlanks, m_end) == std::string_view::npos) {
            throw JsonSyntaxError(ExitCode::eBadInput, "empty file", m_source,
                                  "expected JSON, at least {}");
        }
        if (const size_t at = m_text.find('\0'); at != std::string_view::npos) {
            // The parser would take it for the end.
            throw _error<JsonSyntaxError>(at, "broken JSON", "expected text, found a zero byte");
        }
        if (m_text.substr(m_end).starts_with(kByteOrderMark)) {
            // The parser would skip a second one.
            throw _error<JsonSyntaxError>(m_end, "broken JSON",
                                          "expected text, found a second byte order mark");
        }
        m_reached = m_end;
        nlohmann::json::sax_parse(CountingIterator(m_text, m_end, &m_reached),
                                  CountingIterator(m_text, m_text.size(), &m_reached), this);
    }

    bool null() {
        return _scalar(nullptr, m_reached);
    }
    bool boolean(bool value) {
        return _scalar(value, m_reached);
    }
    bool number_integer(number_integer_t value) {
        return _scalar(value, _numberEnd());
    }
    bool number_unsigned(number_unsigned_t value) {
        if (value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            return _scalar(BigInteger(), _numberEnd());
        }
        return _scalar(static_cast<int64_t>(value), _numberEnd());
    }
    bool number_float(number_float_t value, const string_t& digits) {
        if (digits.find_first_of(".eE") == std::string::npos) {
            return _scalar(BigInteger(), _numberEnd());
        }
        return _scalar(value, _numberEnd());
    }
    bool string(string_t& value) {
        return _scalar(std::move(value), m_reached);
    }
    bool binary(binary_t&) {
        return false; // not in JSON text
    }
    bool key(string_t& name) {
        const TextRange range = {_tokenBegin(), m_reached};
        m_end = m_reached;
        m_events.onName(name, range);
        return true;
    }
    bool start_object(size_t) {
        return _begin(JsonContainer::eObject);
    }
    bool start_array(size_t) {
        return _begin(JsonContainer::eArray);
    }
    bool end_object() {
        return _finish();
    }
    bool end_array() {
        return _finish();
    }

    template <class Exception>
    bool parse_error(size_t, const std::string&, const Exception& error) {
        constexpr int kNumberOverflow = 406;
        if (error.id == kNumberOverflow) {
            throw _error<ToolError>(_tokenBegin(), "number out of range",
                                    "expected a 64-bit float");
        }
        const Complaint complaint = readComplaint(error.what());
        throw _error<JsonSyntaxError>(_placeOf(complaint.found), "broken JSON",
                                      "expected " + complaint.expected + ", found " +
                                          complaint.found);
    }

private:
    bool _scalar(JsonScalar scalar, size_t end) {
        const TextRange range = {_tokenBegin(), end};
        m_end = end;
        m_events.onScalar(scalar, range);
        return true;
    }

    bool _begin(JsonContainer container) {
        if (++m_depth > kMaxJsonDepth) {
            throw _error<ToolError>(_tokenBegin(), "nested too deep",
                                    "expected at most " + std::to_string(kMaxJsonDepth) +
                                        " levels");
        }
        m_end = m_reached;
        m_events.onBegin(container, m_reached - 1);
        return true;
    }

    bool _finish() {
        --m_depth;
        m_end = m_reached;
        m_events.onEnd(m_reached - 1);
        return true;
    }

    // Where the token after m_end begins; the end of the text when there is none.
    size_t _tokenBegin() const {
        return std::min(m_text.find_first_not_of(kBetweenTokens, m_end), m_text.size());
    }

    // The parser may have looked one byte past a number.
    size_t _numberEnd() const {
        return std::min(m_text.find_first_not_of(kNumberBytes, _tokenBegin()), m_text.size());
    }

    // Where to point for what the parser found instead of what it expected.
    size_t _placeOf(const std::string& found) const {
        if (found == "end of input") {
            return m_text.find_last_not_of(kBlanks) + 1;
        }
        const bool isOneByte = found.starts_with('\'');
        const bool isInString = found.starts_with("invalid string");
        return isOneByte || isInString ? m_reached - 1 : _tokenBegin();
    }

    template <class Error>
    Error _error(size_t at, const std::string& what, const std::string& expected) const {
        return Error(ExitCode::eBadInput, what, placeText(m_source, m_text, at), expected,
                     excerptAt(m_text, at));
    }

    std::string_view m_text;
    const std::string& m_source;
    JsonEvents& m_events;
    size_t m_reached = 0; // bytes the parser has taken
    size_t m_end = 0;     // end of the token reported last
    size_t m_depth = 0;
};

} // namespace

void scanJson(std::string_view text, const std::string& source, JsonEvents& events) {
    Tracker(text, source, events).scan();
}

} // namespace vorn::tool
