// The least that any Qt program costs: what start-up time and memory are measured against.

#include <QCoreApplication>

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    return 0;
}
