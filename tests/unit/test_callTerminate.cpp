#include <cstdlib>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

#include <QTest>

#include "ChildProcess.h"

namespace {

/// Ends the process with 3 if its exception is the one that was thrown.
void endKnowingly() {
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::runtime_error& error) {
        std::_Exit(error.what() == std::string("thrown") ? 3 : 4);
    }
}

/// Has a string to clean up when `work` throws.
void runToTheEnd(const std::function<void(const std::string&)>& work) noexcept {
    const std::string text = "thrown" + std::string(100, '!');
    work(text);
}

} // namespace

class TestCallTerminate : public QObject {
    Q_OBJECT

  private slots:
    void theExceptionIsKnownWhereItEndsTheProcess() {
        ChildProcess child([] {
            std::set_terminate(endKnowingly);
            runToTheEnd([](const std::string& text) { throw std::runtime_error(text.substr(0, 6)); });
            return 0;
        });
        QCOMPARE(child.result(), 3);
    }
};

QTEST_GUILESS_MAIN(TestCallTerminate)
#include "test_callTerminate.moc"
