// Shared by the unit tests' stand-in libraries: a record of every call to them, in order, and the failures
// that a test plans for them.
#pragma once

#include <functional>

#include <QString>
#include <QStringList>

namespace FakeCalls {

/// Forgets calls and plans.
void reset();

/// Records a call as "name(argument, argument)" and returns the status planned for it, 0 without a plan.
int enter(const char* name, const QStringList& arguments);

/// Lets the `nth` call of `name` from now on (the first is 1; 0: every one) return `status`.
void fail(const QString& name, int status, int nth = 0);

/// Lets every call of `name` write its results, or not, whatever its status. By default it writes them if it
/// succeeds.
void setAnswers(const QString& name, bool answers);

/// Whether a call of `name` with this status writes its results.
bool answers(const QString& name, int status);

/// Runs `action` in every call of `name`, after recording it.
void during(const QString& name, const std::function<void()>& action);

/// Clears all plans and actions; keeps the record.
void heal();

/// The record, and its calls of these functions.
const QStringList& all();
QStringList of(const QStringList& names);

/// How often `name` was called.
int count(const QString& name);

} // namespace FakeCalls
