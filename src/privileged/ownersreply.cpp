#include "ownersreply.h"

#include <charconv>

namespace OwnersReply {

namespace {

constexpr char kHex[] = "0123456789abcdef";

bool isPlain(unsigned char byte)
{
    return byte > 0x20 && byte < 0x7f && byte != '\\';
}

int hexValue(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

// A whole field of decimal digits, nothing else, within the (unsigned) type's range.
template <typename Number> bool parseNumber(std::string_view field, Number* out)
{
    const char* end = field.data() + field.size();
    const auto [stop, error] = std::from_chars(field.data(), end, *out);
    return !field.empty() && error == std::errc() && stop == end;
}

// The next space-separated field of `line`, taken off its front.
std::string_view takeField(std::string_view* line)
{
    const std::size_t space = line->find(' ');
    const std::string_view field = line->substr(0, space);
    line->remove_prefix(space == std::string_view::npos ? line->size() : space + 1);
    return field;
}

std::optional<Owner> parseOwner(std::string_view line)
{
    Owner owner;
    if (!parseNumber(takeField(&line), &owner.cookie) ||
        !parseNumber(takeField(&line), &owner.pid) || !parseNumber(takeField(&line), &owner.uid))
        return std::nullopt;
    auto command = unescapedCommand(line);
    if (!command || owner.cookie == 0 || owner.pid == 0)
        return std::nullopt;
    owner.command = std::move(*command);
    return owner;
}

} // namespace

std::string escapedCommand(std::string_view bytes)
{
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (isPlain(byte)) {
            text += c;
        } else {
            text += "\\x";
            text += kHex[byte >> 4];
            text += kHex[byte & 15];
        }
    }
    return text;
}

std::optional<std::string> unescapedCommand(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (isPlain(byte)) {
            bytes += text[i];
            continue;
        }
        if (byte != '\\' || i + 3 >= text.size() || text[i + 1] != 'x' ||
            hexValue(text[i + 2]) < 0 || hexValue(text[i + 3]) < 0)
            return std::nullopt;
        bytes += static_cast<char>(hexValue(text[i + 2]) * 16 + hexValue(text[i + 3]));
        i += 3;
    }
    if (bytes.size() > kMaxCommandBytes)
        return std::nullopt;
    return bytes;
}

std::string knownText(const std::vector<Owner>& owners)
{
    std::string text = std::string(kKnown) + ' ' + std::to_string(owners.size()) + '\n';
    for (const Owner& owner : owners)
        text += std::to_string(owner.cookie) + ' ' + std::to_string(owner.pid) + ' ' +
                std::to_string(owner.uid) + ' ' + escapedCommand(owner.command) + '\n';
    return text;
}

std::string unavailableText(std::string_view why)
{
    std::string text = std::string(kUnavailable) + ": ";
    // One line: a reader takes the rest of the text as the reason.
    for (const char c : why)
        text += c == '\n' || c == '\r' ? ' ' : c;
    return text;
}

std::optional<Answer> parse(std::string_view text, HelperProtocol::DecodeError* error)
{
    Answer answer;
    const std::string unavailablePrefix = std::string(kUnavailable) + ": ";
    if (text.substr(0, unavailablePrefix.size()) == unavailablePrefix) {
        answer.unavailable = std::string(text.substr(unavailablePrefix.size()));
        return answer;
    }
    const auto fail = [error](std::string message) {
        error->message = "owners reply: " + std::move(message);
        return std::nullopt;
    };
    std::size_t newline = text.find('\n');
    std::string_view head = text.substr(0, newline);
    std::size_t count = 0;
    if (newline == std::string_view::npos || takeField(&head) != kKnown ||
        !parseNumber(head, &count) || count > HelperProtocol::kMaxOwnerCookies)
        return fail("it starts with neither \"owners N\" nor \"unavailable: \"");
    for (std::size_t start = newline + 1; start < text.size(); start = newline + 1) {
        newline = text.find('\n', start);
        if (newline == std::string_view::npos)
            return fail("its last line is not ended");
        const auto owner = parseOwner(text.substr(start, newline - start));
        if (!owner || answer.owners.size() == count)
            return fail(owner ? "more lines than its count" : "a malformed line");
        answer.owners.push_back(*owner);
    }
    if (answer.owners.size() != count)
        return fail("fewer lines than its count");
    return answer;
}

} // namespace OwnersReply
