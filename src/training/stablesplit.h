#pragma once

#include <QString>
#include <QtGlobal>

// The train / val / test split of the training exports. An image's subset follows from
// the seed and its file name alone, so adding or leaving out other images never moves
// it, and every shard of an export agrees with a run over the whole dataset.
namespace StableSplit {

enum class Subset { Train = 0, Val = 1, Test = 2 };
constexpr int kSubsets = 3;

// "train", "val", "test".
QString subsetName(Subset subset);

// The image's place in [0, 1): the first 53 bits of SHA-256 over the seed in decimal,
// a line feed and the file name in UTF-8.
double position(const QString& fileName, quint64 seed);

// Val when the position lies below valPercent / 100, test when below
// (valPercent + testPercent) / 100, train otherwise.
Subset subsetOf(const QString& fileName, quint64 seed, double valPercent, double testPercent);

} // namespace StableSplit
