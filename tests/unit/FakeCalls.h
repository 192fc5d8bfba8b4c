// What the stand-in libraries of the unit tests share: one record of every call made of them, in order, and
// the failures that a test plans for them.
#pragma once

#include <functional>

#include <QString>
#include <QStringList>

namespace FakeCalls {

/// Forgets calls and plans.
void reset();

/// Records a call as "name(argument, argument)" and gives the status planned for it, 0 without a plan.
int enter(const char* name, const QStringList& arguments);

/// Lets the `nth` call of `name` from now on (the first is 1; 0: every one) answer `status`.
void fail(const QString& name, int status, int nth = 0);

/// Lets every call of `name` write what it is asked for, or leave it out, whatever its status. Without this
/// it answers when it succeeds.
void setAnswers(const QString& name, bool answers);

/// Whether a call of `name` with this status answers.
bool answers(const QString& name, int status);

/// Runs `action` in every call of `name`, once that is recorded.
void during(const QString& name, const std::function<void()>& action);

/// Ends all plans and actions; keeps the record.
void heal();

/// The record, and those of its calls whose text begins with one of `names` and "(".
const QStringList& all();
QStringList of(const QStringList& names);

/// How often `name` was called.
int count(const QString& name);

} // namespace FakeCalls
