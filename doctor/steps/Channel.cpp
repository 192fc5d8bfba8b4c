#include "doctor/steps/Channel.h"

#include <cerrno>
#include <cstdio>

#include <sys/socket.h>
#include <unistd.h>

#include <QJsonDocument>

#include "doctor/steps/Message.h"

namespace doctor {

Channel::Channel(int lineToDoctor, const QByteArray& markOfMessages)
    : line(lineToDoctor), mark(markOfMessages) {}

void Channel::begin(const QString& call, QJsonObject arguments) {
    std::fflush(stdout);
    arguments.insert(QStringLiteral("call"), call);
    send(messageBegin, arguments);
}

void Channel::end(const QJsonObject& answer) {
    std::fflush(stdout);
    send(messageEnd, answer);
}

void Channel::send(const char* kind, const QJsonObject& content) {
    const QByteArray packet = mark + kind + '\n' + QJsonDocument(content).toJson(QJsonDocument::Compact);
    // If the doctor has exited, this child is about to be killed as well.
    while (::send(line, packet.constData(), static_cast<std::size_t>(packet.size()), MSG_NOSIGNAL) < 0 &&
           errno == EINTR) {
    }
}

} // namespace doctor
