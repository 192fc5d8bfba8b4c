#include <algorithm>

#include "doctor/Report.h"
#include "doctor/checks/registry.h"
#include "reader/status/displayText.h"

namespace doctor {

namespace {

constexpr int verdictColumns = 9;

/// Makes text from drivers and files safe for a terminal.
QString shown(const QString& text) {
    return QString::fromStdString(qzstatus::displayText(text.toStdString()).text);
}

/// Breaks a text into lines of at most `columns`, at blanks.
QStringList wrapped(const QString& text, int columns) {
    QStringList lines;
    QString line;
    const QStringList words = text.split(' ', Qt::SkipEmptyParts);
    for (const QString& word : words) {
        if (!line.isEmpty() && line.size() + 1 + word.size() > columns) {
            lines.append(line);
            line.clear();
        }
        line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + word;
    }
    lines.append(line);
    return lines;
}

class TextWriter {
  public:
    TextWriter(int columnCount, bool coloured) : columns(std::max(columnCount, 40)), colour(coloured) {}

    void line(const QString& text) { out += text + '\n'; }

    /// `text` broken into lines: the first after `head`, the others indented below it.
    void paragraph(const QString& head, int headColumns, const QString& text) {
        QString start = head;
        const auto parts = wrapped(text, columns - headColumns);
        for (const QString& part : parts) {
            line(start + part);
            start = QString(headColumns, ' ');
        }
    }

    void finding(const Finding& finding) {
        const QString verdict = verdictName(finding.verdict).leftJustified(verdictColumns);
        paragraph("  " + painted(verdict, finding.verdict), 2 + verdictColumns, shown(finding.fact));
        if (!finding.advice.isEmpty())
            paragraph(QString(2 + verdictColumns, ' ') + "-> ", 2 + verdictColumns + 3,
                      shown(finding.advice));
    }

    QString painted(const QString& text, Verdict verdict) const {
        const char* code = verdict == Verdict::Failure   ? "31"
                           : verdict == Verdict::Warning ? "33"
                           : verdict == Verdict::Ok      ? "32"
                                                         : "36";
        return colour ? QStringLiteral("\x1b[%1m%2\x1b[0m").arg(QLatin1String(code), text) : text;
    }

    QByteArray text() const { return out.toUtf8(); }

  private:
    int columns;
    bool colour;
    QString out;
};

/// The first problems of one check, and what to do about them. A problem whose advice is already in `advised`
/// is a consequence of an earlier one, and is listed only among the checks.
void writeProblems(TextWriter& writer, const QVector<Finding>& findings, const QString& check,
                   QStringList& advised) {
    constexpr int mostShown = 3;
    QVector<Finding> problems;
    for (const Finding& finding : findings)
        if (finding.check == check && finding.verdict >= Verdict::Warning &&
            !advised.contains(finding.advice))
            problems.append(finding);
    if (problems.isEmpty())
        return;
    writer.line({});
    writer.line(check);
    const int shownCount = std::min<int>(problems.size(), mostShown);
    for (int i = 0; i < shownCount; ++i) {
        advised.append(problems[i].advice);
        Finding shown = problems[i];
        // Advice is printed once, after the last problem that it applies to.
        if (i + 1 < shownCount && problems[i + 1].advice == shown.advice)
            shown.advice.clear();
        writer.finding(shown);
    }
    if (problems.size() > shownCount)
        writer.line(QStringLiteral("           and %1 more, listed below").arg(problems.size() - shownCount));
}

QString groupOf(const Finding& finding) {
    return finding.check.section('.', 0, 0);
}

} // namespace

QByteArray textForm(const Report& report, int columns, bool colour) {
    TextWriter writer(columns, colour);
    writer.paragraph(writer.painted(QString(), report.worst()), 0, shown(report.headline()));
    QStringList advised;
    for (const Check& check : checks())
        writeProblems(writer, report.findings, QLatin1String(check.id), advised);
    QString group;
    QString last;
    for (const Finding& finding : report.findings) {
        if (groupOf(finding) != group) {
            group = groupOf(finding);
            writer.line({});
            writer.line(group);
        }
        // Where a vendor has nothing here, each of its checks says so.
        if (finding.fact != last)
            writer.finding(finding);
        last = finding.fact;
    }
    return writer.text();
}

} // namespace doctor
