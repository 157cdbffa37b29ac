// The words of a description: names, texts, numbers and signs, each with its place.
#ifndef TAVNOVIEW_LEXER_H
#define TAVNOVIEW_LEXER_H

#include <string>
#include <vector>

struct Token {
    enum Kind { name, text, number, sign, end } kind;
    std::string value;
    long long nValue;
    unsigned nLine, nColumn;
};

struct Mistake {
    std::string text;
};

// Throws "path:line:column: text" as a Mistake.
[[noreturn]] void FailAt(const std::string& path, const Token& token, const std::string& text);
// The last one is the end. Throws a Mistake.
std::vector<Token> SplitText(const std::string& path, const std::string& text);

#endif
