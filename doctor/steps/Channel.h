// The child's end of the socket to the doctor.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace doctor {

/// Sends messages to the doctor. The child's standard output and error lead to the same line, so that what a
/// driver prints arrives in order, between the call that printed it and the next.
class Channel {
  public:
    /// `line`: a connected SOCK_SEQPACKET socket, owned by the caller. `mark`: the prefix of each message; a
    /// packet without it is output.
    Channel(int line, const QByteArray& mark);

    /// Announces a call. Calls do not nest. Flushes standard output first, as `end` does, so that output
    /// during a call is attributed to it.
    void begin(const QString& call, QJsonObject arguments = {});

    /// Reports that the call has returned.
    void end(const QJsonObject& answer = {});

    /// Sends a result of the step.
    void send(const char* kind, const QJsonObject& content = {});

    /// Announces `call`, makes it and returns its result.
    template <class Function>
    auto around(const QString& call, Function function) {
        begin(call);
        auto result = function();
        end();
        return result;
    }

  private:
    int line;
    QByteArray mark;
};

} // namespace doctor
