#include "doctor/Examination.h"

#include <algorithm>
#include <deque>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "doctor/facts/json.h"
#include "doctor/probes/answersStep.h"
#include "doctor/probes/nvmlStep.h"
#include "doctor/probes/openCLStep.h"
#include "doctor/probes/programStep.h"
#include "doctor/probes/rightsStep.h"
#include "doctor/probes/segmentStep.h"

namespace doctor {

namespace {

constexpr const char* queries[] = {"-queryGPU", "-queryNvCuda", "-queryNvOptix", "-queryAmdRt"};

/// Steps, each with the place where its outcome goes.
class Plan {
  public:
    Plan(const ExaminationSettings& examination, unsigned neededFacts, Facts& factsToFill)
        : settings(examination), needs(neededFacts), facts(factsToFill) {}

    void make() {
        const Places places = settings.places;
        const bool isAsleep = !facts.sleepingCard.isEmpty();
        if (wants(NeedsProgram))
            add(
                QStringLiteral("the program's own search"),
                [=, readings = settings.readings](Channel& channel) {
                    runProgram(channel, {places, readings, isAsleep});
                },
                facts.programEnd, true);
        if (wants(NeedsNvml))
            add(QStringLiteral("NVML"), askNvml, facts.nvmlEnd);
        if (wants(NeedsRights))
            add(
                QStringLiteral("rights"),
                [=, user = settings.user](Channel& channel) { judgeRights(channel, places, user); },
                facts.rightsEnd);
        if (wants(NeedsSegment))
            add(
                QStringLiteral("segment"),
                [=, user = settings.user](Channel& channel) { readSegment(channel, places, user); },
                facts.segmentEnd);
        // The remaining steps would wake a card.
        if (isAsleep)
            return;
        if (wants(NeedsOpenCL))
            add(QStringLiteral("OpenCL"), listOpenCL, facts.openCLEnd);
        if (wants(NeedsIcds))
            addIcds();
        if (wants(NeedsAnswers))
            addAnswers();
    }

    void run() {
        StepRunner runner(settings.limits, settings.progress);
        // The program's run is the first; a slow one is otherwise overtaken by the others.
        const int alone = settings.recordsFirst ? 1 : 0;
        QVector<StepOutcome> outcomes = runner.run(steps.mid(0, alone));
        outcomes += runner.run(steps.mid(alone));
        for (int i = 0; i < outcomes.size(); ++i)
            *results[i] = std::move(outcomes[i]);
    }

  private:
    bool wants(Need need) const { return (needs & need) != 0; }

    void add(const QString& name, std::function<void(Channel&)> work, StepOutcome& result,
             bool runsExitHandlers = false) {
        steps.append({name, std::move(work), runsExitHandlers});
        results.append(&result);
    }

    void addIcds() {
        QString vendors;
        for (const EnvironmentVariable& variable : qAsConst(facts.system.environment))
            if (variable.name == QLatin1String("OCL_ICD_VENDORS"))
                vendors = variable.value;
        const auto icds = listIcdFiles(settings.places, vendors);
        for (const IcdFile& icd : icds)
            facts.icds.append({icd, {}, {}});
        for (IcdTrial& trial : facts.icds) {
            if (trial.icd.library.isEmpty())
                continue;
            folders.emplace_back();
            const QString folder = folders.back().path();
            QFile::copy(trial.icd.path, folder + "/" + QFileInfo(trial.icd.path).fileName());
            add(
                trial.icd.path,
                [folder, icd = trial.icd](Channel& channel) { tryIcdAlone(channel, icd, folder); },
                trial.outcome);
        }
    }

    void addAnswers() {
        for (const char* option : queries)
            facts.answers.append({QLatin1String(option), {}});
        for (AnswerTrial& trial : facts.answers)
            add(
                "qzGpuInfo " + trial.option,
                [program = settings.program, option = trial.option](Channel& channel) {
                    askProgram(channel, program, option);
                },
                trial.outcome);
    }

    const ExaminationSettings& settings;
    unsigned needs;
    Facts& facts;
    QVector<Step> steps;
    QVector<StepOutcome*> results;
    std::deque<QTemporaryDir> folders; ///< one for each driver tried alone; removed at the end
};

QString sleepingCardOf(const QVector<PciDevice>& devices) {
    const auto found = std::find_if(devices.begin(), devices.end(), [](const PciDevice& device) {
        return device.vendor == pciVendorAmd && device.isSuspended();
    });
    return found != devices.end() ? found->address : QString();
}

template <class Record>
Record lastTold(const StepOutcome& outcome, const char* kind) {
    const auto all = outcome.reported(kind);
    return all.isEmpty() ? Record() : fromJson<Record>(all.last());
}

} // namespace

Facts examine(const ExaminationSettings& settings, unsigned needs) {
    Facts facts;
    facts.user = settings.user;
    facts.timeLimit = std::chrono::duration<double>(settings.limits.step).count();
    facts.program = settings.program;
    facts.system = readSystem(settings.places);
    facts.pci = listPciGpus(settings.places);
    if (!settings.wakesCards)
        facts.sleepingCard = sleepingCardOf(facts.pci);
    Plan plan(settings, needs, facts);
    plan.make();
    plan.run();
    facts.programRun = ProgramFacts(facts.programEnd);
    facts.nvml = NvmlFacts(facts.nvmlEnd);
    facts.openCL = OpenCLFacts(facts.openCLEnd);
    for (IcdTrial& trial : facts.icds)
        trial.openCL = OpenCLFacts(trial.outcome);
    facts.rights = lastTold<RightsFacts>(facts.rightsEnd, "rights");
    facts.segment = lastTold<SegmentFacts>(facts.segmentEnd, "segment");
    return facts;
}

std::vector<Check> chosenChecks(const QStringList& only, const QStringList& skip) {
    const auto isNamed = [](const QStringList& selectors, const Check& check) {
        return std::any_of(selectors.begin(), selectors.end(),
                           [&](const QString& selector) { return selects(selector, check); });
    };
    std::vector<Check> chosen;
    for (const Check& check : checks())
        if ((only.isEmpty() || isNamed(only, check)) && !isNamed(skip, check))
            chosen.push_back(check);
    return chosen;
}

QVector<Finding> judge(const std::vector<Check>& chosen, const Facts& facts) {
    QVector<Finding> all;
    for (const Check& check : chosen) {
        Findings findings(QLatin1String(check.id));
        check.judge(facts, findings);
        all += findings.all();
    }
    return all;
}

} // namespace doctor
