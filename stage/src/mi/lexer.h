// Words of the scene language: names, strings, numbers, byte strings and signs; comments and $include are
// dealt with here and never seen by the parser.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mi/source.h"

namespace stage::mi {

struct Token {
    enum class Kind { end, name, string, number, bytes, sign };
    Kind kind = Kind::end;
    std::string_view text;  // as in the source: with quotes
    std::string_view value; // of a name or a string: without; of a byte string: the digits
    const Source* source = nullptr;
    const char* at = nullptr;

    // A word outside quotes.
    [[nodiscard]] bool is(std::string_view word) const { return kind == Kind::name && text == word; }
    [[nodiscard]] bool is(char sign) const { return kind == Kind::sign && text.front() == sign; }
};

// How a word is shown in a message: "the word \"xyz\"", "the end of the file", ...
[[nodiscard]] std::string describe(const Token& token);
// The name or string in double quotes.
[[nodiscard]] std::string quoted(const Token& token);

class Lexer {
public:
    // Finds the file of an $include: the name, the folder of the including file, and whether the name stood
    // in <>. Throws std::runtime_error.
    using FindFile =
        std::function<std::string(const std::string& name, const std::string& folder, bool search)>;
    explicit Lexer(FindFile find_file) : find_file_(std::move(find_file)) {}

    // Reads `source` next; when it ends, reading goes on where it was.
    void push(std::shared_ptr<Source> source);

    const Token& peek() {
        if (!has_token_)
            scan();
        return token_;
    }
    Token next() {
        const Token token = peek();
        has_token_ = false;
        last_ = token.at;
        last_source_ = token.source;
        return token;
    }
    // The first character behind the word that `peek` shows; '\0' at the end of a source.
    [[nodiscard]] char following();

    // A value from a number word; errors name what was expected.
    [[nodiscard]] float to_float(const Token& token) const;
    [[nodiscard]] std::int64_t to_integer(const Token& token, std::int64_t low, std::int64_t high) const;

    // Fast paths for geometry. They look at the text itself as long as it shows nothing unusual, and at words
    // where there are comments, file ends or mistakes.
    // Appends all numbers that follow to `numbers`.
    void read_numbers(std::vector<float>& numbers);
    // Takes an unsigned integer if one is next.
    bool take_index(std::uint32_t& index);
    // True when the text goes on with a digit; false also when it is not clear without a word.
    [[nodiscard]] bool at_digit();
    // Takes a word without quotes if it is next.
    bool take_word(std::string_view word);

    // Keeps only the sources that are still being read; tokens of others become invalid.
    void release_finished();
    void forget_pages() const;

    [[nodiscard]] const Source& source() const { return *stack_.back().source; } // the one being read
    [[nodiscard]] std::shared_ptr<Source> shared_source(const Source* source) const;
    [[noreturn]] void fail(const Token& token, const std::string& message) const;
    // At the word that was taken last.
    [[noreturn]] void fail_last(const std::string& message) const { fail_at(*last_source_, last_, message); }
    [[noreturn]] void fail_at(const Source& source, const char* at, const std::string& message) const;

private:
    struct Reading {
        std::shared_ptr<Source> source;
        const char* at;
    };
    void scan();
    bool skip_space(); // to the next word; false at the end of a source
    void command();    // a line that starts with $
    void include(const char* at);
    void scan_string();
    void scan_bytes();
    void scan_number();
    void finish(Token::Kind kind, const char* begin, const char* end);
    const char*& at() { return stack_.back().at; }
    const char* skip_plain_space();

    FindFile find_file_;
    std::vector<Reading> stack_;
    std::vector<std::shared_ptr<Source>> finished_;
    std::deque<std::string> unescaped_;
    Token token_;
    bool has_token_ = false;
    const char* last_ = nullptr; // the word that was taken last
    const Source* last_source_ = nullptr;
};

} // namespace stage::mi
