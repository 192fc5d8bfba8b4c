// The text of a machine's description, as the simulator reads it.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

namespace doctor {

/// A value in quotes: any bytes.
QByteArray quotedValue(const QByteArray& bytes);

/// A value that needs no quotes as it is, any other in quotes. For names.
QByteArray nameValue(const QByteArray& bytes);

/// Numbers of one figure, reading by reading: one number where it never changes.
QByteArray figureValue(const QVector<quint64>& readings);

/// Sections in the order in which they are begun; faults are gathered, and come last.
class DescriptionText {
  public:
    void comment(const QString& line);
    void section(const QString& head);
    void value(const QString& key, const QByteArray& text);
    void value(const QString& key, qint64 number) { value(key, QByteArray::number(number)); }
    void bus(const QString& key, quint32 number) { value(key, "0x" + QByteArray::number(number, 16)); }

    /// "TARGET = ACTION [CALLS]"; `calls` as "at 3".
    void fault(const QString& target, const QByteArray& action, const QByteArray& calls = {});

    /// The calls of a target that fail, by the status of each: 0 is none. `action`: "fail" or "refuse".
    void failures(const QString& target, const QVector<int>& statuses, const char* action = "fail");

    QByteArray whole() const;

  private:
    QByteArray text;
    QByteArray faults;
};

} // namespace doctor
