// Writes a machine's description for the simulator.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

namespace doctor {

/// A value in quotes, which may have any bytes.
QByteArray quotedValue(const QByteArray& bytes);

/// A value in quotes if it needs them. For names.
QByteArray nameValue(const QByteArray& bytes);

/// The readings of a figure: a single number if it never changes.
QByteArray figureValue(const QVector<quint64>& readings);

/// Sections in the order in which they are begun; the collected faults come last.
class DescriptionText {
  public:
    void comment(const QString& line);
    void section(const QString& head);
    void value(const QString& key, const QByteArray& text);
    void value(const QString& key, qint64 number) { value(key, QByteArray::number(number)); }
    void bus(const QString& key, quint32 number) { value(key, "0x" + QByteArray::number(number, 16)); }

    /// "TARGET = ACTION [CALLS]"; `calls` as "at 3".
    void fault(const QString& target, const QByteArray& action, const QByteArray& calls = {});

    /// The failing calls of a target, from the status of each call (0: success). `action`: "fail" or
    /// "refuse".
    void failures(const QString& target, const QVector<int>& statuses, const char* action = "fail");

    QByteArray whole() const;

  private:
    QByteArray text;
    QByteArray faults;
};

} // namespace doctor
