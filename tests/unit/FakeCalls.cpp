#include "tests/unit/FakeCalls.h"

#include <map>
#include <vector>

namespace {

struct Plan {
    QString name;
    int status;
    int nth; ///< 0: every call
    int calls = 0;
};

QStringList record;
std::vector<Plan> plans;
std::map<QString, bool> answering;
std::map<QString, std::function<void()>> actions;

} // namespace

void FakeCalls::reset() {
    record.clear();
    heal();
}

int FakeCalls::enter(const char* name, const QStringList& arguments) {
    // A loop that believes a wrong count would go on until memory runs out.
    constexpr int mostOfAnyTest = 100000;
    if (record.size() >= mostOfAnyTest)
        qFatal("%s is called without end", name);
    record.append(QLatin1String(name) + "(" + arguments.join(", ") + ")");
    int status = 0;
    for (Plan& plan : plans)
        if (plan.name == QLatin1String(name) && (++plan.calls == plan.nth || plan.nth == 0))
            status = plan.status;
    const auto action = actions.find(QLatin1String(name));
    if (action != actions.end())
        action->second();
    return status;
}

void FakeCalls::fail(const QString& name, int status, int nth) {
    plans.push_back({name, status, nth});
}

void FakeCalls::setAnswers(const QString& name, bool answers) {
    answering[name] = answers;
}

bool FakeCalls::answers(const QString& name, int status) {
    const auto planned = answering.find(name);
    return planned != answering.end() ? planned->second : status == 0;
}

void FakeCalls::during(const QString& name, const std::function<void()>& action) {
    actions[name] = action;
}

void FakeCalls::heal() {
    plans.clear();
    answering.clear();
    actions.clear();
}

const QStringList& FakeCalls::all() {
    return record;
}

QStringList FakeCalls::of(const QStringList& names) {
    QStringList calls;
    for (const QString& call : qAsConst(record))
        if (names.contains(call.section('(', 0, 0)))
            calls.append(call);
    return calls;
}

int FakeCalls::count(const QString& name) {
    return static_cast<int>(of({name}).size());
}
