#include "cli/arguments.h"

#include <QRegularExpression>

#include <cmath>

namespace {

const QStringList kValueOptions = {
    QStringLiteral("--val"),   QStringLiteral("--test"),    QStringLiteral("--seed"),
    QStringLiteral("--images"), QStringLiteral("--classes"), QStringLiteral("--kp-order"),
    QStringLiteral("--files"), QStringLiteral("--shard"),
};

bool percent(const QString& option, const QString& text, double* value, QString* error)
{
    bool ok = false;
    const double v = text.toDouble(&ok);
    if (!ok || !std::isfinite(v) || v < 0 || v > 100) {
        *error = option + QStringLiteral(" takes a percentage from 0 to 100, not \"") + text + u'"';
        return false;
    }
    *value = v;
    return true;
}

bool setOption(const QString& option, const QString& value, Arguments* a, QString* error)
{
    if (option == QLatin1String("--val"))
        return percent(option, value, &a->valPercent, error);
    if (option == QLatin1String("--test"))
        return percent(option, value, &a->testPercent, error);
    if (option == QLatin1String("--seed")) {
        bool ok = false;
        a->seed = value.toULongLong(&ok);
        if (!ok)
            *error = QStringLiteral("--seed takes a whole number from 0 to 18446744073709551615, not \"") + value + u'"';
        return ok;
    }
    if (option == QLatin1String("--images")) {
        if (value != QLatin1String("copy") && value != QLatin1String("link")) {
            *error = QStringLiteral("--images takes copy or link, not \"") + value + u'"';
            return false;
        }
        a->link = value == QLatin1String("link");
        return true;
    }
    if (option == QLatin1String("--classes")) {
        a->classesFile = value;
        return true;
    }
    if (option == QLatin1String("--kp-order")) {
        const int eq = value.indexOf(QLatin1Char('='));
        if (eq <= 0) {
            *error = QStringLiteral("--kp-order takes CLASS=KP1,KP2,..., not \"") + value + u'"';
            return false;
        }
        const QString rest = value.mid(eq + 1);
        a->keypointOrder.insert(value.left(eq), rest.isEmpty() ? QStringList() : rest.split(QLatin1Char(',')));
        return true;
    }
    if (option == QLatin1String("--files")) {
        a->filesList = value;
        return true;
    }
    // --shard: the name goes into file names.
    static const QRegularExpression name(QStringLiteral("^[A-Za-z0-9_-][A-Za-z0-9._-]*$"));
    if (!name.match(value).hasMatch()) {
        *error = QStringLiteral("--shard takes a name of letters, digits, '.', '_' and '-', not \"") + value + u'"';
        return false;
    }
    a->shard = value;
    return true;
}

} // namespace

QString usageText()
{
    return QStringLiteral(
        "Usage:\n"
        "  brindle-convert check  IMAGES ANNOTATIONS [--full] [--json]\n"
        "  brindle-convert export LAYOUT IMAGES ANNOTATIONS OUT [--val P] [--test P] [--seed N]\n"
        "                         [--images copy|link] [--classes FILE] [--kp-order CLASS=KP1,KP2,...]\n"
        "                         [--files LIST] [--shard NAME] [--json]\n"
        "  brindle-convert merge  OUT [--json]\n"
        "\n"
        "LAYOUT: ultralytics-detect, ultralytics-segment, ultralytics-obb, ultralytics-pose,\n"
        "        coco-instances, or yolo, coco, dota, csv, classes, yolo-pose (the files of the\n"
        "        Export / Import menu; for coco, csv and classes OUT is the file).\n"
        "\n"
        "  --val P, --test P   percentages of images for val (default 20) and test (default 0)\n"
        "  --seed N            seed of the split (default 0); an image's subset follows from\n"
        "                      the seed and its file name alone\n"
        "  --images copy|link  copy the images (default) or hard-link them\n"
        "  --classes FILE      class names, one a line, in class order (default: the label\n"
        "                      list the window builds: label_colors.json, then the names found)\n"
        "  --kp-order C=K1,K2  keypoint labels of class C in slot order (repeatable)\n"
        "  --files LIST        export only the images named in LIST, one file name a line\n"
        "  --shard NAME        write the export as shard NAME, for merge\n"
        "  --full              check: decode every image too, not only its header and\n"
        "                      whether the file is whole (about ten times slower)\n"
        "  --json              print a machine-readable summary on stdout\n"
        "\n"
        "Exit status: 0 done, 1 the check found errors, 2 bad usage, unreadable input or\n"
        "output that cannot be written.\n");
}

bool parseArguments(const QStringList& args, Arguments* a, QString* error)
{
    QStringList positional;
    for (int i = 0; i < args.size(); ++i) {
        const QString arg = args.at(i);
        if (arg == QLatin1String("--help") || arg == QLatin1String("-h")) {
            a->verb = QStringLiteral("help");
            return true;
        }
        if (arg == QLatin1String("--version")) {
            a->verb = QStringLiteral("version");
            return true;
        }
        if (arg == QLatin1String("--json")) {
            a->json = true;
            continue;
        }
        if (arg == QLatin1String("--full")) {
            a->full = true;
            continue;
        }
        if (arg == QLatin1String("--")) {
            positional += args.mid(i + 1);
            break;
        }
        if (!arg.startsWith(QLatin1String("--"))) {
            positional << arg;
            continue;
        }
        const int eq = arg.indexOf(QLatin1Char('='));
        const QString option = eq < 0 ? arg : arg.left(eq);
        if (!kValueOptions.contains(option)) {
            *error = QStringLiteral("unknown option ") + option;
            return false;
        }
        QString value;
        if (eq >= 0) {
            value = arg.mid(eq + 1);
        } else if (i + 1 < args.size()) {
            value = args.at(++i);
        } else {
            *error = option + QStringLiteral(" needs a value");
            return false;
        }
        if (!setOption(option, value, a, error))
            return false;
        if (!a->given.contains(option))
            a->given << option;
    }
    if (positional.isEmpty()) {
        *error = QStringLiteral("no command given (check, export or merge)");
        return false;
    }
    a->verb = positional.takeFirst();
    int expected = 0;
    if (a->verb == QLatin1String("check")) {
        expected = 2;
    } else if (a->verb == QLatin1String("export")) {
        expected = 4;
    } else if (a->verb == QLatin1String("merge")) {
        expected = 1;
    } else if (a->verb == QLatin1String("help")) {
        return true;
    } else {
        *error = QStringLiteral("unknown command \"") + a->verb + QStringLiteral("\" (check, export or merge)");
        return false;
    }
    if (positional.size() != expected) {
        *error = QStringLiteral("%1 takes %2 arguments, %3 given; see brindle-convert --help")
                     .arg(a->verb).arg(expected).arg(positional.size());
        return false;
    }
    if (a->verb == QLatin1String("check")) {
        a->images = positional.at(0);
        a->annotations = positional.at(1);
    } else if (a->verb == QLatin1String("export")) {
        a->layout = positional.at(0);
        a->images = positional.at(1);
        a->annotations = positional.at(2);
        a->out = positional.at(3);
    } else {
        a->out = positional.at(0);
    }
    if (a->full && a->verb != QLatin1String("check")) {
        *error = QStringLiteral("--full applies to check only");
        return false;
    }
    if (a->verb != QLatin1String("export") && !a->given.isEmpty()) {
        *error = a->given.first() + QStringLiteral(" applies to export only");
        return false;
    }
    if (a->valPercent + a->testPercent > 100) {
        *error = QStringLiteral("--val and --test add up to more than 100 %");
        return false;
    }
    return true;
}
