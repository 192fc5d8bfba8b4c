#include "doctor/recording/Recorder.h"

#include <cerrno>

#include <dlfcn.h>

#include "doctor/recording/RecordedCall.h"
#include "doctor/steps/Message.h"

namespace doctor {

namespace {

TextFileReader systemReader = nullptr;

// A kernel value is at most a page; of a longer file, the beginning is enough.
constexpr int mostFileBytes = 4096;

QByteArray readRecorded(const QString& path) {
    const RecordedCall call(QStringLiteral("read ") + path, {{"path", path}});
    errno = 0;
    const QByteArray bytes = systemReader(path);
    // Read before anything else can change it.
    const int reason = errno;
    return call.answer(bytes.isNull() ? reason : 0, {{"bytes", textOfBytes(bytes.left(mostFileBytes))}}),
           bytes;
}

void* openRecorded(const char* name, int mode) {
    const QString library = QString::fromLocal8Bit(name);
    const RecordedCall call(QStringLiteral("open ") + library, {{"library", library}});
    void* opened = recording().system.open(name, mode);
    QJsonObject fields;
    if (opened != nullptr) {
        recording().libraries.insert(opened, library);
        fields.insert("soname", QString::fromLocal8Bit(recording().system.soname(opened)));
    } else if (const char* reason = ::dlerror()) {
        fields.insert("reason", QString::fromLocal8Bit(reason));
    }
    call.answer(opened != nullptr ? 0 : 1, fields);
    return opened;
}

void* symbolRecorded(void* library, const char* symbolName) {
    const QString name = QString::fromLatin1(symbolName);
    void* entryPoint = recording().system.symbol(library, symbolName);
    if (entryPoint == nullptr) {
        if (recording().channel != nullptr)
            recording().channel->send("missing",
                                      {{"library", recording().libraries.value(library)}, {"symbol", name}});
        return nullptr;
    }
    void* function = recordingFunction(name);
    if (function == nullptr)
        return entryPoint;
    recording().entryPoints.insert(name, entryPoint);
    recording().sonames.insert(name, QString::fromLocal8Bit(recording().system.soname(library)));
    return function;
}

int closeRecorded(void* library) {
    const QString name = recording().libraries.value(library);
    const RecordedCall call(QStringLiteral("close ") + name, {{"library", name}});
    return call.answer(recording().system.close(library));
}

} // namespace

Recording& recording() {
    static Recording current;
    return current;
}

void* recordingFunction(const QString& entryPoint) {
    void* function = nvidiaRecordingFunction(entryPoint);
    return function != nullptr ? function : openCLRecordingFunction(entryPoint);
}

Recorder::Recorder(Channel& toDoctor) : channel(toDoctor), formerReader(textFileReader) {
    systemReader = formerReader;
    textFileReader = readRecorded;
    resume();
}

Recorder::~Recorder() {
    textFileReader = formerReader;
    pause();
}

DynamicLoader Recorder::loader() {
    return {openRecorded, symbolRecorded, closeRecorded, DynamicLoader::system().soname};
}

void Recorder::pause() {
    recording().channel = nullptr;
}

void Recorder::resume() {
    recording().channel = &channel;
}

} // namespace doctor
