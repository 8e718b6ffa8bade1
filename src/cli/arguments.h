#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

// The command line of brindle-convert, parsed and checked for form (not yet against the
// file system).
struct Arguments {
    QString verb; // "check", "export", "merge", "help", "version"
    QString layout;
    QString images;
    QString annotations;
    QString out;
    double valPercent = 20;
    double testPercent = 0;
    quint64 seed = 0;
    bool link = false;
    QString classesFile;
    QMap<QString, QStringList> keypointOrder;
    QString filesList;
    QString shard;
    bool json = false;
    bool full = false; // check: decode every image as well

    // Which of the export options were given, for refusing those a format ignores.
    QStringList given;
};

// Parses argv (without the program name). On a mistake returns false with one line in
// *error.
bool parseArguments(const QStringList& args, Arguments* parsed, QString* error);

QString usageText();
