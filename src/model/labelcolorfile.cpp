#include "model/labelcolorfile.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include "model/safefile.h"

namespace LabelColorFile {

namespace {

// A JSON string as Qt's writer prints it. Names of printable characters take the short
// way; anything that needs escaping goes through Qt.
void appendString(QByteArray& out, const QString& text)
{
    bool plain = true;
    for (QChar c : text) {
        const char16_t u = c.unicode();
        if (u < 0x20 || u == u'"' || u == u'\\' || c.isSurrogate()) {
            plain = false;
            break;
        }
    }
    if (plain) {
        out += '"';
        out += text.toUtf8();
        out += '"';
        return;
    }
    const QByteArray wrapped = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    out += wrapped.mid(1, wrapped.size() - 2);
}

} // namespace

QString pathIn(const QString& annotationsFolder)
{
    return QDir(annotationsFolder).filePath(QStringLiteral("label_colors.json"));
}

ReadOutcome merge(const QString& path, QList<LabelDef>& labels)
{
    ReadOutcome outcome;
    QByteArray bytes;
    QString reason;
    const SafeFile::ReadResult read =
        SafeFile::read(path, SafeFile::kMaxLabelColorFileBytes, &bytes, &reason);
    if (read == SafeFile::ReadResult::Missing)
        return outcome;
    const QString name = QDir::toNativeSeparators(path);
    if (read != SafeFile::ReadResult::Ok) {
        outcome.damaged = true;
        outcome.problem = QStringLiteral("%1 was not read: %2").arg(name, reason);
        return outcome;
    }
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray()) {
        outcome.damaged = true;
        outcome.problem = error.error != QJsonParseError::NoError
            ? QStringLiteral("%1 is damaged (%2 at byte %3)").arg(name, error.errorString()).arg(error.offset)
            : QStringLiteral("%1 does not hold a list of labels").arg(name);
        return outcome;
    }

    QSet<QString> known;
    known.reserve(labels.size());
    for (const LabelDef& label : std::as_const(labels))
        known.insert(label.name);
    const QJsonArray entries = doc.array();
    for (const QJsonValue& entry : entries) {
        const QJsonObject object = entry.toObject();
        const QString labelName = cleanLabelName(object.value(QLatin1String("name")).toString());
        if (labelName.isEmpty() || known.contains(labelName))
            continue;
        const QColor color = QColor::fromString(object.value(QLatin1String("color")).toString());
        if (!color.isValid())
            continue;
        labels.append({labelName, color});
        known.insert(labelName);
    }
    return outcome;
}

QByteArray toJson(const QList<LabelDef>& labels)
{
    QByteArray out;
    out.reserve(16 + labels.size() * 72);
    out += "[\n";
    for (qsizetype i = 0; i < labels.size(); ++i) {
        out += "    {\n        \"color\": \"";
        out += labels.at(i).color.name(QColor::HexRgb).toLatin1();
        out += "\",\n        \"name\": ";
        appendString(out, labels.at(i).name);
        out += i + 1 < labels.size() ? "\n    },\n" : "\n    }\n";
    }
    out += "]\n";
    return out;
}

} // namespace LabelColorFile
