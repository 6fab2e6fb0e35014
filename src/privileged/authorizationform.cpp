#include "authorizationform.h"

#include <charconv>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

void putBigEndian(std::uint8_t* out, std::uint64_t value, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i) {
        out[i] = static_cast<std::uint8_t>(value);
        value >>= 8;
    }
}

std::uint64_t getBigEndian(const std::uint8_t* in, int bytes)
{
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = (value << 8) | in[i];
    return value;
}

} // namespace

AuthorizationForm::Bytes AuthorizationForm::toBytes() const
{
    Bytes bytes{};
    putBigEndian(bytes.data(), pid, 4);
    putBigEndian(bytes.data() + 4, uid, 4);
    putBigEndian(bytes.data() + 8, startTime, 8);
    return bytes;
}

std::optional<AuthorizationForm> AuthorizationForm::fromBytes(const std::uint8_t* data,
                                                              std::size_t size)
{
    if (data == nullptr || size != kSize)
        return std::nullopt;
    for (std::size_t i = 16; i < kSize; ++i) {
        if (data[i] != 0)
            return std::nullopt;
    }
    AuthorizationForm form;
    form.pid = static_cast<std::uint32_t>(getBigEndian(data, 4));
    form.uid = static_cast<std::uint32_t>(getBigEndian(data + 4, 4));
    form.startTime = getBigEndian(data + 8, 8);
    return form;
}

std::optional<std::uint64_t> AuthorizationForm::processStartTime(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    if (!file)
        return std::nullopt;
    const std::string stat((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    // The command name (field 2) may hold blanks and parentheses: count fields after the last ')'.
    const auto close = stat.rfind(')');
    if (close == std::string::npos)
        return std::nullopt;
    std::size_t position = close + 1;
    // After ')' come field 3 (state) onwards; the start time is field 22.
    for (int field = 3; field < 22; ++field) {
        position = stat.find(' ', position + 1);
        if (position == std::string::npos)
            return std::nullopt;
    }
    std::uint64_t value = 0;
    const char* begin = stat.data() + position + 1;
    const char* end = stat.data() + stat.size();
    const auto [ptr, ec] = std::from_chars(begin, end, value);
    if (ec != std::errc() || ptr == begin)
        return std::nullopt;
    return value;
}

std::optional<AuthorizationForm> AuthorizationForm::forCurrentProcess()
{
    const auto start = processStartTime(::getpid());
    if (!start)
        return std::nullopt;
    return AuthorizationForm{static_cast<std::uint32_t>(::getpid()),
                             static_cast<std::uint32_t>(::getuid()), *start};
}
