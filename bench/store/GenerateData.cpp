#include "model/JsonCodec.h"

#include <QFile>

#include <cstdio>
#include <cstdlib>

#include "common/DataGenerator.h"

// usage: fiva-generate-data COUNT FILE [SEED]
int main(int argc, char **argv)
{
    if (argc < 3 || argc > 4) {
        std::fprintf(stderr, "usage: fiva-generate-data COUNT FILE [SEED]\n");
        return 2;
    }
    const int count = std::atoi(argv[1]);
    const auto seed = argc == 4 ? std::uint32_t(std::strtoul(argv[3], nullptr, 10)) : 42u;
    const auto bytes = fiva::json::encode(fiva::bench::generateSavedData(count, seed));
    if (!bytes.ok()) {
        std::fprintf(stderr, "%s\n", qPrintable(bytes.error()));
        return 1;
    }
    QFile file(QString::fromLocal8Bit(argv[2]));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(bytes.value()) != bytes.value().size() || !file.flush()) {
        std::fprintf(stderr, "cannot write %s: %s\n", argv[2], qPrintable(file.errorString()));
        return 1;
    }
    return 0;
}
