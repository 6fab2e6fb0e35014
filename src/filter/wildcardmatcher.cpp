#include "wildcardmatcher.h"

// The classic greedy scan: on a mismatch, go back to just after the last "*" and let it
// swallow one more character. Earlier stars never need revisiting, which keeps it quadratic
// at worst instead of exponential.
bool WildcardMatcher::matches(QStringView pattern, QStringView text, Qt::CaseSensitivity cs)
{
    qsizetype p = 0;
    qsizetype t = 0;
    qsizetype starPattern = -1;
    qsizetype starText = 0;
    while (t < text.size()) {
        if (p < pattern.size()) {
            const QChar c = pattern[p];
            if (c == u'*') {
                starPattern = ++p;
                starText = t;
                continue;
            }
            if (c == u'?') {
                ++p;
                ++t;
                continue;
            }
            const bool escaped = c == u'\\' && p + 1 < pattern.size();
            const QChar literal = escaped ? pattern[p + 1] : c;
            if (literal == text[t] ||
                (cs == Qt::CaseInsensitive && literal.toCaseFolded() == text[t].toCaseFolded())) {
                p += escaped ? 2 : 1;
                ++t;
                continue;
            }
        }
        if (starPattern < 0)
            return false;
        p = starPattern;
        t = ++starText;
    }
    while (p < pattern.size() && pattern[p] == u'*')
        ++p;
    return p == pattern.size();
}
