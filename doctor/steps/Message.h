// What a step in a child process sends to the doctor.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QVector>

namespace doctor {

/// Kinds of message that every step sends. Each step has further ones.
constexpr const char* messageBegin = "begin"; ///< a vendor's call is about to be made: "call", its arguments
constexpr const char* messageEnd = "end";     ///< it has returned: its answer
constexpr const char* messageOutput = "output"; ///< "text": output on standard output or error
constexpr const char* messageDone = "done";     ///< the step's work is over

struct Message {
    QString kind;
    QJsonObject content;
};

using Messages = QVector<Message>;

/// Arbitrary bytes as JSON text and back: one character per byte.
inline QString textOfBytes(const QByteArray& bytes) {
    // Of a QByteArray alone, only what comes before its first NUL is taken.
    return QString::fromLatin1(bytes.constData(), bytes.size());
}
inline QByteArray bytesOfText(const QString& text) {
    return text.toLatin1();
}

} // namespace doctor
