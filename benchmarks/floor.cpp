// The least that any Qt program costs: start-up time and memory are compared with it.

#include <QCoreApplication>

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    return 0;
}
