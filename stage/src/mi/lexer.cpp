// Words of the scene language.
#include "mi/lexer.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace stage::mi {

namespace {

// Deeper nesting of files is a mistake rather than a scene.
constexpr std::size_t deepest_include = 64;

constexpr std::uint8_t space = 1, digit = 2, letter = 4, numeric = 8;

// What a byte may be part of; bytes above 127 are nothing.
constexpr std::array<std::uint8_t, 256> make_classes() {
    std::array<std::uint8_t, 256> classes{};
    for (const char c : {' ', '\t', '\r', '\n', '\f', '\v'})
        classes[static_cast<unsigned char>(c)] = space;
    for (char c = '0'; c <= '9'; ++c)
        classes[static_cast<unsigned char>(c)] = digit | numeric;
    for (char c = 'a'; c <= 'z'; ++c)
        classes[static_cast<unsigned char>(c)] = letter;
    for (char c = 'A'; c <= 'Z'; ++c)
        classes[static_cast<unsigned char>(c)] = letter;
    classes['_'] = letter;
    classes['-'] = classes['+'] = classes['.'] = numeric; // may start a number
    return classes;
}

constexpr std::array<std::uint8_t, 256> classes = make_classes();

bool has_class(char c, std::uint8_t mask) {
    return (classes[static_cast<unsigned char>(c)] & mask) != 0;
}

constexpr std::string_view signs = "()[]{},=:;<>*|&";

// Where a number's text ends.
const char* number_end(const char* at) {
    if (*at == '-' || *at == '+')
        ++at;
    while (has_class(*at, digit))
        ++at;
    if (*at == '.')
        ++at;
    while (has_class(*at, digit))
        ++at;
    if (*at == 'e' || *at == 'E') {
        const char* exponent = at + 1;
        if (*exponent == '-' || *exponent == '+')
            ++exponent;
        if (has_class(*exponent, digit)) {
            at = exponent;
            while (has_class(*at, digit))
                ++at;
        }
    }
    return at;
}

// Reads the number in [begin, end), which has a number's form. False when it is too large; a number too small
// for a float becomes 0 or a denormal number.
bool convert(const char* begin, const char* end, float& value) {
    if (*begin == '+')
        ++begin;
    const auto [stop, error] = std::from_chars(begin, end, value);
    if (error == std::errc() && stop == end)
        return true;
    value = std::strtof(std::string(begin, end).c_str(), nullptr); // rare: outside the range of floats
    return std::isfinite(value);
}

// "nan", "inf" and their like, which other programs write among numbers.
bool is_not_finite(std::string_view text) {
    if (text.starts_with('-') || text.starts_with('+'))
        text.remove_prefix(1);
    std::string word(text.substr(0, 9));
    for (char& c : word)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return word == "nan" || word == "inf" || word == "infinity";
}

} // namespace

std::string quoted(const Token& token) {
    return '"' + std::string(token.value) + '"';
}

std::string describe(const Token& token) {
    const std::size_t shown = 40;
    std::string text(token.text.substr(0, shown));
    if (token.text.size() > shown)
        text += "...";
    for (char& c : text)
        if (c < ' ' || c > 126)
            c = '?';
    switch (token.kind) {
    case Token::Kind::end:
        return "the end of the file";
    case Token::Kind::string:
        return "the string " + text;
    case Token::Kind::number:
        return "the number " + text;
    case Token::Kind::bytes:
        return "the byte string " + text;
    default:
        return '\'' + text + (is_not_finite(token.text) ? "', which is no finite number" : "'");
    }
}

void Lexer::push(std::shared_ptr<Source> source) {
    const char* start = source->start();
    stack_.push_back({std::move(source), start});
    has_token_ = false;
}

void Lexer::release_finished() {
    finished_.clear();
    if (!has_token_)
        unescaped_.clear();
}

void Lexer::forget_pages() const {
    for (const Reading& reading : stack_)
        reading.source->forget_pages();
}

std::shared_ptr<Source> Lexer::shared_source(const Source* source) const {
    for (const Reading& reading : stack_)
        if (reading.source.get() == source)
            return reading.source;
    return nullptr;
}

void Lexer::fail(const Token& token, const std::string& message) const {
    fail_at(*token.source, token.at, message);
}

void Lexer::fail_at(const Source& source, const char* at, const std::string& message) const {
    throw SceneError(source.place(at), message, source.line_of(at));
}

bool Lexer::skip_space() {
    const Source& source = *stack_.back().source;
    const char*& at = this->at();
    for (;;) {
        while (has_class(*at, space))
            ++at;
        if (*at == '#') {
            at = std::find(at, source.end(), '\n');
        } else if (*at == '$' && (at == source.begin() || at[-1] == '\n')) {
            return true;
        } else {
            return at < source.end();
        }
    }
}

char Lexer::following() {
    peek();
    return skip_space() ? *at() : '\0';
}

void Lexer::scan() {
    for (;;) {
        if (!skip_space()) {
            if (stack_.size() == 1)
                return finish(Token::Kind::end, at(), at());
            finished_.push_back(std::move(stack_.back().source));
            stack_.pop_back();
            continue;
        }
        const char* const begin = at();
        if (*begin == '$' && (begin == source().begin() || begin[-1] == '\n')) {
            command();
            continue;
        }
        if (*begin == '"')
            return scan_string();
        if (*begin == '\'')
            return scan_bytes();
        if (has_class(*begin, numeric))
            return scan_number();
        const char* end = begin;
        if (has_class(*begin, letter) || (begin[0] == ':' && begin[1] == ':')) {
            // Names may carry their namespaces: a::b, ::b.
            while (has_class(*end, letter | digit) || (end[0] == ':' && end[1] == ':'))
                end += *end == ':' ? 2 : 1;
            return finish(Token::Kind::name, begin, end);
        }
        if (signs.find(*begin) != std::string_view::npos)
            return finish(Token::Kind::sign, begin, begin + 1);
        if (*begin == '$')
            fail_at(source(), begin, "a command with $ starts in the first column of its line");
        char hex[8];
        std::snprintf(hex, sizeof hex, "0x%02x", static_cast<unsigned char>(*begin));
        fail_at(source(), begin, std::string("a byte that no word starts with (") + hex + ")");
    }
}

void Lexer::finish(Token::Kind kind, const char* begin, const char* end) {
    token_.kind = kind;
    token_.text = token_.value = {begin, static_cast<std::size_t>(end - begin)};
    token_.source = stack_.back().source.get();
    token_.at = begin;
    at() = end;
    has_token_ = true;
}

void Lexer::scan_string() {
    const char* const begin = at();
    bool escapes = false;
    const char* end = begin + 1;
    for (; *end != '"'; ++end) {
        if (end >= source().end() || *end == '\n')
            fail_at(source(), begin, "the string is not closed before the end of the line");
        if (end[0] == '\\' && end[1] == '"') {
            escapes = true;
            ++end;
        }
    }
    finish(Token::Kind::string, begin, end + 1);
    token_.value = {begin + 1, static_cast<std::size_t>(end - begin - 1)};
    if (!escapes)
        return;
    std::string& text = unescaped_.emplace_back();
    for (const char* c = begin + 1; c < end; ++c)
        if (c[0] != '\\' || c[1] != '"')
            text += *c;
    token_.value = text;
}

void Lexer::scan_bytes() {
    const char* const begin = at();
    const char* end = begin + 1;
    while (std::isxdigit(static_cast<unsigned char>(*end)))
        ++end;
    if (*end != '\'')
        fail_at(source(), end, "expected a hexadecimal digit or the closing ' of the byte string");
    finish(Token::Kind::bytes, begin, end + 1);
    token_.value = {begin + 1, static_cast<std::size_t>(end - begin - 1)};
    if (token_.value.size() % 2 != 0)
        fail(token_, "a byte string needs two hexadecimal digits for each byte");
    if (token_.value.size() > 2048)
        fail(token_, "a byte string holds at most 1024 bytes");
}

void Lexer::scan_number() {
    const char* const begin = at();
    const char* const end = number_end(begin);
    const bool digits = std::any_of(begin, end, [](char c) { return has_class(c, digit); });
    if (!digits || has_class(*end, letter | numeric)) {
        const char* word_end = end;
        while (has_class(*word_end, letter | numeric))
            ++word_end;
        fail_at(source(), begin,
                is_not_finite({begin, word_end}) ? "this is no finite number" : "this is no number");
    }
    finish(Token::Kind::number, begin, end);
}

void Lexer::command() {
    const char* const begin = at();
    const char* end = begin + 1;
    while (has_class(*end, letter))
        ++end;
    const std::string_view word(begin, static_cast<std::size_t>(end - begin));
    if (word == "$include") {
        at() = end;
        include(begin);
    } else if (word == "$code" || word == "$end") {
        fail_at(source(), begin,
                "shader source code in scenes is not supported: compile it to a library and use link");
    } else {
        fail_at(source(), begin, "unknown command " + std::string(word) + ", expected $include");
    }
}

void Lexer::include(const char* command_at) {
    const Source& from = source();
    const char*& at = this->at();
    while (*at == ' ' || *at == '\t')
        ++at;
    const bool search = *at == '<';
    const char closing = search ? '>' : '"';
    if (*at != '"' && *at != '<')
        fail_at(from, at, "expected \"file\" or <file> after $include");
    const char* const begin = at + 1;
    const char* end = begin;
    while (end < from.end() && *end != '\n' && *end != closing)
        ++end;
    if (*end != closing)
        fail_at(from, at, "the file name is not closed before the end of the line");
    at = end + 1;
    if (stack_.size() >= deepest_include)
        fail_at(from, command_at,
                "files include each other more than " + std::to_string(deepest_include) + " deep");
    try {
        const std::string path = find_file_(std::string(begin, end), from.folder(), search);
        for (const Reading& reading : stack_)
            if (reading.source->name() == path)
                fail_at(from, command_at, "\"" + path + "\" includes itself");
        push(Source::open(path));
    } catch (const SceneError&) {
        throw;
    } catch (const std::runtime_error& error) {
        fail_at(from, begin, error.what());
    }
}

float Lexer::to_float(const Token& token) const {
    float value = 0.0f;
    if (token.kind != Token::Kind::number)
        fail(token, "expected a number, found " + describe(token));
    if (!convert(token.text.data(), token.text.data() + token.text.size(), value))
        fail(token, "the number is too large for a scalar");
    return value;
}

std::int64_t Lexer::to_integer(const Token& token, std::int64_t low, std::int64_t high) const {
    std::int64_t value = 0;
    const char* begin = token.text.data();
    const char* const end = begin + token.text.size();
    if (token.kind != Token::Kind::number)
        fail(token, "expected an integer, found " + describe(token));
    if (*begin == '+')
        ++begin;
    const auto [stop, error] = std::from_chars(begin, end, value);
    if (stop != end)
        fail(token, "expected an integer, found " + describe(token));
    if (error != std::errc() || value < low || value > high)
        fail(token,
             "the integer is outside the range " + std::to_string(low) + " to " + std::to_string(high));
    return value;
}

const char* Lexer::skip_plain_space() {
    const char* at = this->at();
    while (has_class(*at, space))
        ++at;
    this->at() = at;
    return at;
}

void Lexer::read_numbers(std::vector<float>& numbers) {
    do {
        const char* const source_end = source().end();
        const char* at = has_token_ ? "" : this->at();
        for (;;) {
            while (has_class(*at, space))
                ++at;
            if (!has_class(*at, numeric))
                break;
            float value;
            const auto [end, error] = std::from_chars(*at == '+' ? at + 1 : at, source_end, value);
            // Anything unusual ("inf", 1e999, 12abc) is left to the words and their messages.
            if (error != std::errc() || !has_class(end[-1], digit | numeric) ||
                has_class(*end, letter | numeric))
                break;
            numbers.push_back(value);
            at = end;
        }
        if (!has_token_)
            this->at() = at;
        if (peek().kind != Token::Kind::number)
            return;
        numbers.push_back(to_float(next()));
    } while (true);
}

bool Lexer::take_index(std::uint32_t& index) {
    if (!has_token_) {
        const char* at = skip_plain_space();
        const char* const begin = at;
        std::uint32_t value = 0;
        while (has_class(*at, digit) && at < begin + 9)
            value = value * 10 + static_cast<std::uint32_t>(*at++ - '0');
        if (at != begin && !has_class(*at, letter | numeric)) {
            index = value;
            last_ = begin;
            last_source_ = stack_.back().source.get();
            this->at() = at;
            return true;
        }
        if (at == begin && has_class(*at, letter))
            return false;
    }
    if (peek().kind != Token::Kind::number)
        return false;
    index = static_cast<std::uint32_t>(to_integer(next(), 0, UINT32_MAX));
    return true;
}

bool Lexer::at_digit() {
    return !has_token_ && has_class(*skip_plain_space(), digit);
}

bool Lexer::take_word(std::string_view word) {
    if (!has_token_) {
        const char* at = skip_plain_space();
        if (has_class(*at, letter)) {
            for (const char c : word)
                if (*at++ != c)
                    return false;
            if (has_class(*at, letter | digit) || *at == ':')
                return false;
            last_ = at - word.size();
            last_source_ = stack_.back().source.get();
            this->at() = at;
            return true;
        }
    }
    if (!peek().is(word))
        return false;
    next();
    return true;
}

} // namespace stage::mi
