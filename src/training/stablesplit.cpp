#include "training/stablesplit.h"

#include <QCryptographicHash>

namespace StableSplit {

QString subsetName(Subset subset)
{
    switch (subset) {
    case Subset::Train: return QStringLiteral("train");
    case Subset::Val: return QStringLiteral("val");
    case Subset::Test: return QStringLiteral("test");
    }
    return {};
}

double position(const QString& fileName, quint64 seed)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(QByteArray::number(seed));
    hash.addData(QByteArrayView("\n"));
    hash.addData(fileName.toUtf8());
    const QByteArray digest = hash.result();
    quint64 bits = 0;
    for (int i = 0; i < 8; ++i)
        bits = (bits << 8) | quint8(digest.at(i));
    return double(bits >> 11) / double(quint64(1) << 53);
}

Subset subsetOf(const QString& fileName, quint64 seed, double valPercent, double testPercent)
{
    const double p = position(fileName, seed) * 100.0;
    if (p < valPercent)
        return Subset::Val;
    if (p < valPercent + testPercent)
        return Subset::Test;
    return Subset::Train;
}

} // namespace StableSplit
