// What one user may do.
#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace doctor {

/// A device node that GPU drivers open.
struct NodeFacts {
    QString path;
    QString owner;
    QString group;
    int mode = 0;            ///< permission bits
    bool accessible = false; ///< may be read and written

    template <class Visit>
    void walk(Visit visit) {
        visit("path", path);
        visit("owner", owner);
        visit("group", group);
        visit("mode", mode);
        visit("accessible", accessible);
    }
};

struct UserFacts {
    QString name;
    int id = -1;
    QStringList groups;
    QString problem; ///< why this user's rights could not be checked; empty on success

    template <class Visit>
    void walk(Visit visit) {
        visit("name", name);
        visit("id", id);
        visit("groups", groups);
        visit("problem", problem);
    }
};

/// The file system of shared memory.
struct SharedMemoryFacts {
    bool exists = false;
    bool writable = false;
    double freeMb = 0.0;

    template <class Visit>
    void walk(Visit visit) {
        visit("exists", exists);
        visit("writable", writable);
        visit("freeMb", freeMb);
    }
};

struct RightsFacts {
    UserFacts user;
    QVector<NodeFacts> nodes;
    SharedMemoryFacts sharedMemory;

    template <class Visit>
    void walk(Visit visit) {
        visit("user", user);
        visit("nodes", nodes);
        visit("sharedMemory", sharedMemory);
    }
};

} // namespace doctor
