// The child's end of the line to the doctor.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace doctor {

/// Sends messages to the doctor. The child's standard output and error lead to the same line, so that what a
/// driver prints arrives in order, between the call that printed it and the next.
class Channel {
  public:
    /// `line`: a connected SOCK_SEQPACKET socket, which stays the caller's. `mark`: what each message begins
    /// with; a packet without it is output.
    Channel(int line, const QByteArray& mark);

    /// A call is about to be made. Calls do not nest. Flushes standard output first, as `end` does: what a
    /// call prints belongs to it.
    void begin(const QString& call, QJsonObject arguments = {});

    /// It has returned.
    void end(const QJsonObject& answer = {});

    /// A result of the step.
    void tell(const char* kind, const QJsonObject& content = {});

    /// Announces `call`, makes it and gives its result.
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
