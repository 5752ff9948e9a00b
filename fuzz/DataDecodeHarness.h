#pragma once

#include "model/JsonCodec.h"

#include <cstdint>
#include <optional>
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

inline std::optional<std::string> decodeData(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const Timestamp now{1.5};
    if (auto broken = checkRoundTrip(
            decodeSavedData(bytes, now), [&](const QByteArray &b) { return decodeSavedData(b, now); },
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
