#include "doctor/recording/DescriptionText.h"

#include <algorithm>

namespace doctor {

namespace {

/// The range of a run of equal calls, out of `count`: empty if it is all of them.
QByteArray callsText(int first, int last, int count) {
    const QByteArray from = QByteArray::number(first);
    if (first == 1 && last == count)
        return {};
    if (first == last && last != count)
        return "at " + from;
    return last == count ? "from " + from : "from " + from + " until " + QByteArray::number(last);
}

} // namespace

QByteArray quotedValue(const QByteArray& bytes) {
    QByteArray text = "\"";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n')
            text += "\\n";
        else if (c == '\t')
            text += "\\t";
        else if (c == '"' || c == '\\')
            text += QByteArray("\\") + c;
        // "{i}" would be replaced by the repetition's number.
        else if (byte < 0x20 || byte >= 0x7f || c == '{')
            text += "\\x" + QByteArray::number(byte, 16).rightJustified(2, '0');
        else
            text += c;
    }
    return text + "\"";
}

QByteArray nameValue(const QByteArray& bytes) {
    const bool isPlain = !bytes.isEmpty() && bytes == bytes.trimmed() && bytes[0] != '"' && bytes[0] != '@' &&
                         std::all_of(bytes.begin(), bytes.end(),
                                     [](char c) { return c >= 0x20 && c < 0x7f && c != '{' && c != '\\'; });
    return isPlain ? bytes : quotedValue(bytes);
}

QByteArray figureValue(const QVector<quint64>& readings) {
    QVector<quint64> values = readings;
    // A figure ends with its last value.
    while (values.size() > 1 && values[values.size() - 1] == values[values.size() - 2])
        values.removeLast();
    QByteArray text;
    for (const quint64 value : qAsConst(values))
        text += (text.isEmpty() ? "" : ", ") + QByteArray::number(value & static_cast<quint64>(INT64_MAX));
    return text;
}

void DescriptionText::comment(const QString& line) {
    text += "# " + line.toUtf8() + '\n';
}

void DescriptionText::section(const QString& head) {
    text += "\n[" + head.toUtf8() + "]\n";
}

void DescriptionText::value(const QString& key, const QByteArray& valueText) {
    text += key.toUtf8() + " = " + valueText + '\n';
}

void DescriptionText::fault(const QString& target, const QByteArray& action, const QByteArray& calls) {
    faults += target.toUtf8() + " = " + action + (calls.isEmpty() ? "" : ' ' + calls) + '\n';
}

void DescriptionText::failures(const QString& target, const QVector<int>& statuses, const char* action) {
    const int count = statuses.size();
    for (int first = 0; first < count;) {
        int last = first;
        while (last + 1 < count && statuses[last + 1] == statuses[first])
            ++last;
        if (statuses[first] != 0)
            fault(target, action + QByteArray(" ") + QByteArray::number(statuses[first]),
                  callsText(first + 1, last + 1, count));
        first = last + 1;
    }
}

QByteArray DescriptionText::whole() const {
    return text + (faults.isEmpty() ? QByteArray() : "\n[faults]\n" + faults);
}

} // namespace doctor
