#include "lexer.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

void FailAt(const std::string& path, const Token& token, const std::string& text)
{
    throw Mistake{path + ":" + std::to_string(token.nLine) + ":" + std::to_string(token.nColumn) + ": " + text};
}

std::vector<Token> SplitText(const std::string& path, const std::string& text)
{
    std::vector<Token> tokens;
    unsigned nLine = 1;
    size_t nLineStart = 0, i = 0;
    const auto At = [&](size_t n) { return n < text.size() ? text[n] : '\0'; };
    const auto IsName = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
    for (;;) {
        while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
            if (text[i++] == '\n') {
                ++nLine;
                nLineStart = i;
            }
        }
        const size_t nFrom = i;
        Token token = {Token::sign, "", 0, nLine, static_cast<unsigned>(i - nLineStart + 1)};
        if (i >= text.size()) {
            token.kind = Token::end;
        } else if (At(i) == '/' && At(i + 1) == '/') {
            i = std::min(text.find('\n', i), text.size());
            continue;
        } else if (std::isdigit(static_cast<unsigned char>(At(i)))) {
            token.kind = Token::number;
            while (IsName(At(i)))
                ++i;
            char* lpszEnd;
            errno = 0;
            token.value = text.substr(nFrom, i - nFrom);
            token.nValue = static_cast<long long>(std::strtoull(token.value.c_str(), &lpszEnd, 0));
            if (*lpszEnd != '\0' || errno != 0)
                FailAt(path, token, "expected a number, found \"" + token.value + "\"");
        } else if (IsName(At(i))) {
            token.kind = Token::name;
            while (IsName(At(i)) || (At(i) == ':' && At(i + 1) == ':' && IsName(At(i + 2))))
                i += At(i) == ':' ? 2 : 1;
            token.value = text.substr(nFrom, i - nFrom);
        } else if (At(i) == '"' || At(i) == '\'') {
            const size_t nEnd = text.find(At(i), i + 1);
            token.kind = At(i) == '"' ? Token::text : Token::number;
            token.value = text.substr(i + 1, nEnd - i - 1);
            const bool bOne = token.kind == Token::text || token.value.size() == 1;
            if (nEnd == std::string::npos || !bOne || token.value.find('\n') != std::string::npos)
                FailAt(path, token, "expected the closing quote on the same line");
            token.nValue = token.value.empty() ? 0 : static_cast<unsigned char>(token.value[0]);
            i = nEnd + 1;
        } else {
            static const char* const longSigns[] = {"...", "==", "!=", "<=", ">=", "&&", "||"};
            size_t nLength = 1;
            for (const char* lpszSign : longSigns) {
                if (text.compare(i, std::strlen(lpszSign), lpszSign) == 0)
                    nLength = std::strlen(lpszSign);
            }
            token.value = text.substr(i, nLength);
            i += nLength;
        }
        tokens.push_back(token);
        if (token.kind == Token::end)
            return tokens;
    }
}
