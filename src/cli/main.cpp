// brindle-convert: the dataset check and the conversions of Brindle without a window.
// Runs on the core library alone, so it needs no display.

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

#include "cli/arguments.h"
#include "cli/commands.h"

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("brindle-convert"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BRINDLE_VERSION));

    Arguments args;
    QString error;
    if (!parseArguments(app.arguments().mid(1), &args, &error))
        return Commands::fail(error);
    if (args.verb == QLatin1String("help")) {
        std::fputs(usageText().toLocal8Bit().constData(), stdout);
        return Commands::Done;
    }
    if (args.verb == QLatin1String("version")) {
        std::printf("brindle-convert %s\n", BRINDLE_VERSION);
        return Commands::Done;
    }
    if (args.verb == QLatin1String("check"))
        return Commands::check(args);
    if (args.verb == QLatin1String("export"))
        return Commands::exportDataset(args);
    return Commands::merge(args);
}
