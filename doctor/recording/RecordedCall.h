// Records one call of a vendor's entry point.
#pragma once

#include <chrono>

#include <QHash>
#include <QJsonObject>
#include <QString>

#include "doctor/steps/Channel.h"
#include "support/DynamicLoader.h"

namespace doctor {

/// The entry points and libraries that are recorded in this process.
struct Recording {
    Channel* channel = nullptr; ///< null: nothing is sent
    DynamicLoader system = DynamicLoader::system();
    QHash<QString, void*> entryPoints; ///< the vendors' own, by their names
    QHash<QString, QString> sonames;   ///< of the library that each is from
    QHash<void*, QString> libraries;   ///< names of the open ones
};

Recording& recording();

/// Announces the call when constructed; `answer` must follow.
class RecordedCall {
  public:
    explicit RecordedCall(const QString& callName, const QJsonObject& arguments = {}) : name(callName) {
        if (recording().channel != nullptr)
            recording().channel->begin(name, arguments);
    }

    /// The vendor's own entry point behind the recording function `wrapper`.
    template <class Function>
    Function* real(Function* /*wrapper*/) const {
        return reinterpret_cast<Function*>(recording().entryPoints.value(name));
    }

    /// Sends the call's results: its status, `fields` and its duration in seconds. Returns the status.
    template <class Status>
    Status answer(Status status, QJsonObject fields = {}) const {
        if (recording().channel != nullptr) {
            const auto taken = std::chrono::steady_clock::now() - made;
            fields.insert(QStringLiteral("seconds"), std::chrono::duration<double>(taken).count());
            fields.insert(QStringLiteral("status"), static_cast<int>(status));
            recording().channel->end(fields);
        }
        return status;
    }

  private:
    QString name;
    std::chrono::steady_clock::time_point made = std::chrono::steady_clock::now();
};

/// A vendor's handle as text.
inline QString handleText(const void* handle) {
    return QString::number(reinterpret_cast<quintptr>(handle), 16);
}

/// The function that records `entryPoint`; null for one that is not recorded.
void* recordingFunction(const QString& entryPoint);

void* nvidiaRecordingFunction(const QString& entryPoint);
void* openCLRecordingFunction(const QString& entryPoint);

} // namespace doctor
