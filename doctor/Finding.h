// What a check reports.
#pragma once

#include <QString>
#include <QVector>

namespace doctor {

/// By rising severity.
enum class Verdict { Skipped, Ok, Note, Warning, Failure };

/// "ok", "note", "warning", "failure", "skipped".
QString verdictName(Verdict verdict);

struct Finding {
    QString check;   ///< the check's id
    QString subject; ///< which of several it is about: a PCI address, a file, an option; may be empty
    Verdict verdict = Verdict::Ok;
    QString fact;   ///< one sentence
    QString advice; ///< one sentence on what to do; empty where nothing is wrong
};

/// Collects the findings of one check.
class Findings {
  public:
    explicit Findings(const QString& checkId) : check(checkId) {}

    /// Subsequent findings are about `subject`.
    Findings& on(const QString& name) {
        subject = name;
        return *this;
    }

    void ok(const QString& fact) { add(Verdict::Ok, fact, {}); }
    void skipped(const QString& fact, const QString& advice = {}) { add(Verdict::Skipped, fact, advice); }
    void note(const QString& fact, const QString& advice = {}) { add(Verdict::Note, fact, advice); }
    void warning(const QString& fact, const QString& advice) { add(Verdict::Warning, fact, advice); }
    void failure(const QString& fact, const QString& advice) { add(Verdict::Failure, fact, advice); }

    bool isEmpty() const { return found.isEmpty(); }
    const QVector<Finding>& all() const { return found; }

  private:
    void add(Verdict verdict, const QString& fact, const QString& advice) {
        found.append({check, subject, verdict, fact, advice});
    }

    QString check;
    QString subject;
    QVector<Finding> found;
};

} // namespace doctor
