#pragma once

#include "model/JsonCodec.h"

#include <cstdint>
#include <optional>
#include <simdjson.h>
#include <string>

// What the data-file fuzz target checks on one input; the model tests replay the corpus through it.
namespace fiva::json::fuzz {

// Whatever decodes must encode, decode back to the same value and encode to the same bytes again.
template <class T, class Decode, class Encode>
std::optional<std::string> checkRoundTrip(const Result<T> &decoded, Decode decode, Encode encode,
                                          const char *what)
{
    if (!decoded.ok())
        return decoded.error().isEmpty()
                   ? std::optional<std::string>(std::string(what) + ": a failure without a description")
                   : std::nullopt;
    const Result<QByteArray> encoded = encode(decoded.value());
    if (!encoded.ok())
        return std::string(what) + ": decoded but does not encode: " + encoded.error().toStdString();
    const Result<T> again = decode(encoded.value());
    if (!again.ok())
        return std::string(what) + ": its own encoding does not decode: " + again.error().toStdString();
    if (!(again.value() == decoded.value()))
        return std::string(what) + ": changed by encoding and decoding";
    const Result<QByteArray> twice = encode(again.value());
    if (!twice.ok() || twice.value() != encoded.value())
        return std::string(what) + ": encodes differently the second time";
    return std::nullopt;
}

// The reader looks only at what it needs but must still reject every text that is not JSON: a parser
// that builds the whole document is the reference, and the two must call the same texts malformed.
inline std::optional<std::string> checkSyntaxVerdict(QByteArrayView bytes, const Result<SavedData> &decoded)
{
    simdjson::dom::parser parser;
    const simdjson::padded_string padded(bytes.data(), std::size_t(bytes.size()));
    simdjson::dom::element root;
    const simdjson::error_code reference = parser.parse(padded).get(root);
    const bool rejected = !decoded.ok() && decoded.error().startsWith(QLatin1String("malformed JSON: "));
    if (rejected == (reference != simdjson::SUCCESS))
        return std::nullopt;
    // An integer too large for 64 bits is still a number to us (a date may be written so).
    if (reference == simdjson::NUMBER_ERROR && !rejected) {
        int digits = 0;
        for (const char c : bytes) {
            digits = c >= '0' && c <= '9' ? digits + 1 : 0;
            if (digits >= 19)
                return std::nullopt;
        }
    }
    return std::string(rejected ? "rejected as malformed but valid for a full parser: "
                                : "accepted but malformed for a full parser: ") +
           simdjson::error_message(reference);
}

inline std::optional<std::string> decodeData(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const Timestamp now{1.5};
    const Result<SavedData> decoded = decodeSavedData(bytes, now);
    if (auto broken = checkSyntaxVerdict(bytes, decoded))
        return broken;
    if (auto broken = checkRoundTrip(
            decoded, [&](const QByteArray &b) { return decodeSavedData(b, now); },
            [](const SavedData &d) { return encode(d); }, "data file"))
        return broken;
    if (auto broken = checkRoundTrip(
            decodeLinkItems(bytes, now),
            [&](const QByteArray &b) -> Result<QList<LinkItem>> {
                Result<SavedData> back = decodeSavedData(b, now);
                if (!back.ok())
                    return Result<QList<LinkItem>>::failure(back.error());
                return std::move(back).value().items;
            },
            [](const QList<LinkItem> &items) {
                return encode(SavedData{items, {}, {}});
            },
            "bare list of records"))
        return broken;
    return checkRoundTrip(
        decodeBackupHistory(bytes), [](const QByteArray &b) { return decodeBackupHistory(b); },
        [](const QList<BackupLog> &history) { return encode(history); }, "backup history");
}

} // namespace fiva::json::fuzz
