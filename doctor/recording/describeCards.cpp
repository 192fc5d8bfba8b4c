#include <cerrno>

#include <QFileInfo>

#include "doctor/recording/describeParts.h"
#include "doctor/steps/Message.h"

namespace doctor {

namespace {

/// The number that a file has on its only line, in the kernel's format.
bool isNumber(const QByteArray& bytes, quint64& number) {
    bool isOne = false;
    number = bytes.trimmed().toULongLong(&isOne);
    return isOne && number <= static_cast<quint64>(INT64_MAX) && bytes == QByteArray::number(number) + '\n';
}

/// A file that always has the same bytes.
QByteArray fileValue(const QByteArray& bytes) {
    const QByteArray line = bytes.endsWith('\n') ? bytes.chopped(1) : QByteArray();
    // Text with a comma may read as a figure, and one with a unit as a size.
    const bool isPlain = !line.isEmpty() && nameValue(line) == line && !line.contains(',') &&
                         !line.endsWith("iB") && !line.startsWith("cycle");
    return isPlain ? line : quotedValue(bytes);
}

QByteArray failureValue(int reason) {
    switch (reason) {
    case ENOENT:
        return "@missing";
    case EISDIR:
        return "@directory";
    case EACCES:
        return "@unreadable";
    default:
        return "@fails " + QByteArray::number(reason);
    }
}

void describeFile(DescriptionText& text, const NumberedCalls& calls, const QString& target,
                  const QString& key) {
    QVector<QByteArray> contents;
    QVector<int> reasons;
    QVector<quint64> numbers;
    bool areNumbers = true;
    const QVector<NumberedCall> asked = calls.of(target);
    for (const NumberedCall& one : asked) {
        if (!one.call->returned)
            continue;
        reasons.append(one.call->status);
        if (one.call->status == 0)
            contents.append(bytesOfText(one.call->text("bytes")));
        quint64 number = 0;
        areNumbers = areNumbers && (one.call->status != 0 || isNumber(contents.last(), number));
        numbers.append(one.call->status == 0 ? number : numbers.isEmpty() ? 0 : numbers.last());
    }
    if (reasons.isEmpty())
        return;
    if (contents.isEmpty()) {
        text.value(key, failureValue(reasons.first()));
        return;
    }
    const bool isFigure = areNumbers && contents.count(contents.first()) != contents.size();
    text.value(key, isFigure ? figureValue(numbers) : fileValue(contents.first()));
    int reading = 0;
    for (int number = 0; number < reasons.size(); ++number)
        if (reasons[number] == 0 && contents[reading++] != contents.first() && !isFigure)
            text.fault(target, "answer " + quotedValue(contents[reading - 1]),
                       "at " + QByteArray::number(number + 1));
    text.failures(target, reasons);
}

void describeDeviceLink(DescriptionText& text, const QString& device) {
    const QFileInfo link(device);
    if (link.isSymLink()) {
        text.value("address", nameValue(QFileInfo(link.symLinkTarget()).fileName().toLocal8Bit()));
        if (!link.exists())
            text.value("device_entry", "dangling");
    } else {
        text.value("device_entry", link.isDir() ? "directory" : "missing");
    }
}

} // namespace

void describeCards(DescriptionText& text, const NumberedCalls& calls, const Places& places) {
    QStringList cards;
    QMap<QString, QStringList> files;
    for (const NumberedCall& one : calls.all()) {
        if (!one.call->name.startsWith("read ") || one.target.isEmpty())
            continue;
        const QString card = one.target.section('/', 0, 0);
        const QString file = one.target.section('/', 1);
        if (!cards.contains(card))
            cards.append(card);
        if (!files[card].contains(file))
            files[card].append(file);
    }
    for (const QString& card : qAsConst(cards)) {
        text.section("card " + card);
        describeDeviceLink(text, places.drm() + "/" + card + "/device");
        for (const QString& file : qAsConst(files[card])) {
            const bool isMonitors = file.startsWith("hwmon/");
            if (isMonitors)
                text.value("hwmon", file.section('/', 1, 1).toUtf8());
            describeFile(text, calls, card + "/" + file, isMonitors ? file.mid(6) : file);
        }
    }
}

} // namespace doctor
