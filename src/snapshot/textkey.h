#pragma once

#include <QHashFunctions>
#include <QString>

#include <cstring>

// A text as the key of a QHash or QSet, hashed with plain integer arithmetic instead of Qt's
// hash of texts. For short texts (names, states, descriptors) Qt's hash runs code that switches
// between two encodings of the vector unit's instructions, and among our own code each such
// call was found to cost hundreds of cycles on some processors: a third of a refresh on one.
// Seeded like any QHash, so what collides cannot be worked out from outside.
struct TextKey {
    QString text;

    friend bool operator==(const TextKey& a, const TextKey& b) { return a.text == b.text; }
    friend size_t qHash(const TextKey& key, size_t seed = 0)
    {
        const auto* bytes = reinterpret_cast<const unsigned char*>(key.text.constData());
        size_t left = size_t(key.text.size()) * sizeof(QChar);
        quint64 hash = seed ^ (left * 0x9e3779b97f4a7c15ULL);
        for (; left >= 8; left -= 8, bytes += 8) {
            quint64 word;
            std::memcpy(&word, bytes, sizeof word);
            hash = mix(hash ^ word);
        }
        quint64 tail = 0;
        std::memcpy(&tail, bytes, left);
        return size_t(mix(hash ^ tail));
    }

private:
    // The finalizer of splitmix64: every bit of the input reaches every bit of the output.
    static quint64 mix(quint64 x)
    {
        x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
        x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
        return x ^ (x >> 31);
    }
};
