#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <vector>

// Helpers that turn libFuzzer's bytes into the inputs our code takes.
namespace FuzzInput {

// The bytes as UTF-16 code units, two at a time, so lone surrogates and every BMP character
// reach the code under test (an odd last byte is dropped).
inline QString utf16Of(const std::uint8_t* data, std::size_t size)
{
    QString text;
    text.reserve(qsizetype(size / 2));
    for (std::size_t i = 0; i + 1 < size; i += 2)
        text.append(QChar(char16_t(data[i] | (data[i + 1] << 8))));
    return text;
}

// Cuts the bytes at every `separator` byte into the outputs lsof would have printed.
inline std::vector<QByteArray> splitOutputs(const std::uint8_t* data, std::size_t size,
                                            std::uint8_t separator)
{
    std::vector<QByteArray> outputs;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= size; ++i) {
        if (i == size || data[i] == separator) {
            outputs.emplace_back(reinterpret_cast<const char*>(data + start), qsizetype(i - start));
            start = i + 1;
        }
    }
    return outputs;
}

} // namespace FuzzInput
