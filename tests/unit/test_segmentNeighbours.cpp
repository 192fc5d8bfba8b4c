// Other objects in a segment's place, and calls that the system refuses.
#include <cerrno>

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include "ChildProcess.h"
#include "RefusedCall.h"
#include "SegmentDirectory.h"
#include "support/qzSharedMemory.h"
#include "tests/unit/testRows.h"

namespace {

constexpr char key[] = "segment";
constexpr unsigned char mode = 7;
constexpr qint64 blockSize = 7472;
constexpr uid_t nobody = 65534;

bool writeText(const char* path, const QByteArray& text) {
    QFile file(QString::fromLatin1(path));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(text) == text.size();
}

/// Gives this process private mounts. False where that is not allowed.
bool leaveMounts() {
    const auto onlyItself = [](unsigned id) {
        return QByteArray::number(id) + ' ' + QByteArray::number(id) + " 1";
    };
    const QByteArray user = onlyItself(geteuid());
    const QByteArray group = onlyItself(getegid());
    if (geteuid() == 0) {
        if (unshare(CLONE_NEWNS) != 0)
            return false;
    } else if (unshare(CLONE_NEWNS | CLONE_NEWUSER) != 0 || !writeText("/proc/self/uid_map", user) ||
               !writeText("/proc/self/setgroups", "deny") || !writeText("/proc/self/gid_map", group)) {
        return false;
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool becomeOrdinaryUser() {
    return geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0);
}

} // namespace

class TestSegmentNeighbours : public QObject {
    Q_OBJECT

  private slots:
    void planted_data() {
        const auto row = testColumns<QString>("kind");
        for (const char* kind :
             {"link to a segment", "dangling link", "FIFO", "directory", "hard link", "socket"})
            row(kind, QString::fromLatin1(kind));
    }

    void planted() {
        QFETCH(QString, kind);
        const SegmentDirectory directory;
        const QByteArray path = directory.file(key);
        QVERIFY(directory.makeFile("target", QByteArray(int(blockSize), 't')));
        QVERIFY(chmod(directory.file("target").constData(), 0644) == 0);
        if (kind == QLatin1String("link to a segment"))
            QCOMPARE(symlink("target", path.constData()), 0);
        else if (kind == QLatin1String("dangling link"))
            QCOMPARE(symlink("nowhere", path.constData()), 0);
        else if (kind == QLatin1String("FIFO"))
            QCOMPARE(mkfifo(path.constData(), 0600), 0);
        else if (kind == QLatin1String("directory"))
            QCOMPARE(mkdir(path.constData(), 0700), 0);
        else if (kind == QLatin1String("hard link"))
            QCOMPARE(link(directory.file("target").constData(), path.constData()), 0);
        else
            bindSocket(path);
        const struct stat before = directory.status(key);
        const QStringList names = directory.names();
        const QStringList descriptors = openDescriptors();
        QVERIFY(before.st_ino != 0);

        QElapsedTimer timer;
        timer.start();
        for (const unsigned char bits : {mode, static_cast<unsigned char>(qzSharedMemory::ModeRead)}) {
            qzSharedMemory segment(key, bits, directory.path());
            QVERIFY(!segment.create(blockSize, true, false));
            QCOMPARE(segment.error(), int(qzSharedMemory::AlreadyExists));
            QVERIFY(!segment.attach());
            QCOMPARE(segment.error(), int(qzSharedMemory::PermissionDenied));
            QCOMPARE(errno, EPERM);
            QCOMPARE(
                QByteArray(segment.errorString().c_str()),
                QByteArray(
                    "The shared memory \"segment\" is refused, it is not a segment of this user's own."));
        }
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(directory.status(key).st_ino, before.st_ino);
        QCOMPARE(directory.status(key).st_mode, before.st_mode);
        QCOMPARE(directory.bytes("target"), QByteArray(int(blockSize), 't'));
        QCOMPARE(int(directory.status("target").st_mode & 07777), 0644);
        QCOMPARE(directory.names(), names);
        QCOMPARE(openDescriptors(), descriptors);
    }

    void plantedIsReplacedOnRequest_data() {
        const auto row = testColumns<bool>("isLink");
        row("link", true);
        row("FIFO", false);
    }

    void plantedIsReplacedOnRequest() {
        QFETCH(bool, isLink);
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile("target", "t"));
        if (isLink)
            QCOMPARE(symlink("target", directory.file(key).constData()), 0);
        else
            QCOMPARE(mkfifo(directory.file(key).constData(), 0600), 0);
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, true));
        QVERIFY(S_ISREG(directory.status(key).st_mode));
        QCOMPARE(directory.bytes("target"), QByteArray("t"));
    }

    void rights_data() {
        testColumns<int>("rights");
        for (const int rights : {0600, 0400, 0644, 0660, 0666, 0777, 04755, 01600, 0700})
            QTest::addRow("%o", unsigned(rights)) << rights;
    }

    void rights() {
        QFETCH(int, rights);
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, QByteArray(int(blockSize), 'x')));
        QCOMPARE(chmod(directory.file(key).constData(), mode_t(rights)), 0);
        const mode_t mask = umask(0);
        qzSharedMemory segment(key, mode, directory.path());
        const bool attached = segment.attach();
        umask(mask);
        // Only root can open an object for writing whose mode forbids it.
        const bool isWritable = geteuid() == 0 || (rights & S_IWUSR) != 0;
        QCOMPARE(attached, isWritable);
        QCOMPARE(segment.error(), int(isWritable ? qzSharedMemory::None : qzSharedMemory::PermissionDenied));
        QCOMPARE(int(directory.status(key).st_mode & 07777), isWritable ? 0600 : rights);
    }

    void anotherUsers_data() {
        const auto row = testColumns<bool>("asRoot");
        row("as root", true);
        row("as an ordinary user", false);
    }

    void anotherUsers() {
        QFETCH(bool, asRoot);
        if (geteuid() != 0)
            QSKIP("SKIPPED: only root can make another user's object");
        const SegmentDirectory directory;
        chmod(directory.path(), 01777);
        QVERIFY(directory.makeFile(key, QByteArray(int(blockSize), 'x')));
        QCOMPARE(chmod(directory.file(key).constData(), 0666), 0);
        QCOMPARE(chown(directory.file(key).constData(), asRoot ? nobody : 0, 0), 0);
        ChildProcess child([&] {
            if (!asRoot && !becomeOrdinaryUser())
                return notPossible;
            qzSharedMemory segment(key, mode, directory.path());
            if (segment.create(blockSize, true, false) || segment.error() != qzSharedMemory::AlreadyExists)
                return 1;
            if (segment.attach() || segment.error() != qzSharedMemory::PermissionDenied)
                return 2;
            // In a directory like /dev/shm only root can take another user's name.
            if (!asRoot &&
                (segment.create(blockSize, true, true) ||
                 segment.error() != qzSharedMemory::PermissionDenied || directory.names().size() != 1))
                return 3;
            return 0;
        });
        QCOMPARE(child.result(), 0);
        QCOMPARE(int(directory.status(key).st_mode & 07777), 0666);
        QCOMPARE(directory.bytes(key), QByteArray(int(blockSize), 'x'));
        QCOMPARE(directory.names(), QStringList{key});
    }

    void withoutRights() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, "x"));
        chmod(directory.path(), 0755);
        ChildProcess child([&] {
            if (geteuid() != 0)
                chmod(directory.path(), 0555);
            else if (!becomeOrdinaryUser())
                return notPossible;
            qzSharedMemory segment("other", mode, directory.path());
            if (segment.create(blockSize, true, false) || segment.error() != qzSharedMemory::PermissionDenied)
                return 1;
            qzSharedMemory locked(key, mode, directory.path());
            chmod(directory.file(key).constData(), 0);
            return locked.attach() || locked.error() != qzSharedMemory::PermissionDenied ? 2 : 0;
        });
        QCOMPARE(child.result(), 0);
        chmod(directory.path(), 0700);
    }

    void fullFileSystem_data() {
        const auto row = testColumns<bool>("replace");
        row("create", false);
        row("replace", true);
    }

    void fullFileSystem() {
        QFETCH(bool, replace);
        const SegmentDirectory directory;
        passesInChild("SKIPPED: no file system can be mounted here", [&] {
            if (!leaveMounts() || mount("none", directory.path(), "tmpfs", 0, "size=16k") != 0)
                return notPossible;
            qzSharedMemory first("first", mode, directory.path());
            if (!first.create(blockSize, true, false))
                return 1;
            qzSharedMemory second("second", mode, directory.path());
            if (!second.create(blockSize, true, false))
                return 2;
            qzSharedMemory third("third", mode, directory.path());
            if (third.create(1, true, replace) || third.error() != qzSharedMemory::OutOfResources ||
                errno != ENOSPC)
                return 3;
            if (directory.names() != QStringList{"first", "second"})
                return 4;
            // What already exists needs no room.
            qzSharedMemory again("first", mode, directory.path());
            if (again.create(blockSize, true, false) || again.error() != qzSharedMemory::AlreadyExists)
                return 5;
            const QByteArray block(int(blockSize), 'b');
            if (!again.attach() || !again.write(block.constData(), blockSize))
                return 6;
            second.detach();
            return third.create(1, true, replace) ? 0 : 7;
        });
    }

    void readOnlyFileSystem() {
        const SegmentDirectory directory;
        passesInChild("SKIPPED: no file system can be mounted here", [&] {
            if (!leaveMounts() || mount("none", directory.path(), "tmpfs", 0, "size=64k") != 0 ||
                !directory.makeFile(key, QByteArray(int(blockSize), 'x')) ||
                mount(nullptr, directory.path(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
                return notPossible;
            qzSharedMemory other("other", mode, directory.path());
            if (other.create(blockSize, true, false) || other.error() != qzSharedMemory::PermissionDenied)
                return 1;
            if (other.create(blockSize, true, true) || other.error() != qzSharedMemory::PermissionDenied)
                return 2;
            qzSharedMemory existing(key, mode, directory.path());
            if (existing.create(blockSize, true, false) || existing.error() != qzSharedMemory::AlreadyExists)
                return 3;
            if (existing.attach() || existing.error() != qzSharedMemory::PermissionDenied)
                return 4;
            // A reader needs no right to write.
            qzSharedMemory reader(key, qzSharedMemory::ModeRead, directory.path());
            return reader.attach() && reader.data() != nullptr ? 0 : 5;
        });
    }

    void withoutProc() {
        const SegmentDirectory directory;
        passesInChild("SKIPPED: /proc can't be hidden here", [&] {
            if (!leaveMounts() || mount("none", "/proc", "tmpfs", 0, nullptr) != 0)
                return notPossible;
            qzSharedMemory segment(key, mode, directory.path());
            if (!segment.create(blockSize, true, false))
                return 1;
            if (directory.names() != QStringList{key} || directory.status(key).st_size != blockSize)
                return 2;
            qzSharedMemory second(key, mode, directory.path());
            if (second.create(blockSize, true, false) || second.error() != qzSharedMemory::AlreadyExists)
                return 3;
            return segment.detach() && directory.names().isEmpty() ? 0 : 4;
        });
    }

    /// A signal would end the process that goes past this limit.
    void fileSizeLimit() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile("existing", QByteArray(200, 'x')));
        ChildProcess child([&directory] {
            const struct rlimit small{100, 100};
            if (setrlimit(RLIMIT_FSIZE, &small) != 0)
                return 1;
            qzSharedMemory segment(key, mode, directory.path());
            if (segment.create(101, true, false) || segment.error() != qzSharedMemory::OutOfResources)
                return 2;
            if (!segment.create(100, true, false))
                return 3;
            qzSharedMemory existing("existing", mode, directory.path());
            const QByteArray bytes(200, 'y');
            if (!existing.attach() || existing.write(bytes.constData(), 200) ||
                existing.error() != qzSharedMemory::OutOfResources)
                return 4;
            return existing.write(bytes.constData(), 100) ? 0 : 5;
        });
        QCOMPARE(child.result(), 0);
    }

    void codeOfWhatTheSystemRefuses_data() {
        const auto row = testColumns<int, int>("reason", "code");
        row("EACCES", EACCES, qzSharedMemory::PermissionDenied);
        row("EPERM", EPERM, qzSharedMemory::PermissionDenied);
        row("EROFS", EROFS, qzSharedMemory::PermissionDenied);
        row("EDQUOT", EDQUOT, qzSharedMemory::OutOfResources);
        row("EFBIG", EFBIG, qzSharedMemory::OutOfResources);
        row("EMFILE", EMFILE, qzSharedMemory::OutOfResources);
        row("ENFILE", ENFILE, qzSharedMemory::OutOfResources);
        row("ENOMEM", ENOMEM, qzSharedMemory::OutOfResources);
        row("ENOSPC", ENOSPC, qzSharedMemory::OutOfResources);
        row("EIO", EIO, qzSharedMemory::Unknown);
    }

    void codeOfWhatTheSystemRefuses() {
        QFETCH(int, reason);
        QFETCH(int, code);
        const SegmentDirectory directory;
        passesWithRefused({{SYS_fallocate, 0, reason}}, [&] {
            qzSharedMemory segment(key, mode, directory.path());
            return !segment.create(100, true, false) && segment.error() == code ? 0 : 1;
        });
    }

    void withoutDescriptors() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile("existing", "x"));
        ChildProcess child([&directory] {
            const struct rlimit none{0, 0};
            if (setrlimit(RLIMIT_NOFILE, &none) != 0)
                return 1;
            qzSharedMemory segment(key, mode, directory.path());
            if (segment.create(100, true, false) || segment.error() != qzSharedMemory::OutOfResources)
                return 2;
            qzSharedMemory existing("existing", mode, directory.path());
            return existing.attach() || existing.error() != qzSharedMemory::OutOfResources ? 3 : 0;
        });
        QCOMPARE(child.result(), 0);
        QCOMPARE(directory.names(), QStringList{"existing"});
    }

  private:
    static void bindSocket(const QByteArray& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        QCOMPARE(bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        close(made);
    }
};

QTEST_APPLESS_MAIN(TestSegmentNeighbours)
#include "test_segmentNeighbours.moc"
