// What the stand-in libraries of the unit tests share: one record of every call made of them, in order, and
// the failures that a test plans for them.
#pragma once

#include <QString>
#include <QStringList>

namespace FakeCalls {

/// Forgets calls and plans.
void reset();

/// Records a call as "name(argument, argument)" and gives the status planned for it, 0 without a plan.
int enter(const char* name, const QStringList& arguments);

/// Lets the `nth` call of `name` from now on (the first is 1; 0: every one) answer `status`.
void fail(const QString& name, int status, int nth = 0);

/// Ends all plans; keeps the record.
void heal();

/// The record, and those of its calls whose text begins with one of `names` and "(".
const QStringList& all();
QStringList of(const QStringList& names);

/// How often `name` was called.
int count(const QString& name);

} // namespace FakeCalls
