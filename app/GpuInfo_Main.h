// The object that runs the program: it owns the providers, the GPU list, the timer and the segment.
#pragma once

#include <QObject>
#include <QTimer>

#include "app/Vendors.h"
#include "gpu/GpuInfoBlock.h"
#include "support/qzSharedMemory.h"

class GpuInfo_Main : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(GpuInfo_Main)

  public:
    /// Tests give their own vendors and directory.
    explicit GpuInfo_Main(Vendors vendorsOfRun = linuxVendors(), const char* segmentDirectory = "/dev/shm");

    ~GpuInfo_Main() override;

    /// Finds the GPUs, then runs one update (single run) or starts the timer. False if the segment cannot be
    /// set up.
    bool init();

    /// Creates the segment, or attaches to the existing one. False, after a message, if both fail.
    bool createSharedMemory();

    /// Copies the list into the segment under its lock. False, after a message, if that fails; the next
    /// cycle tries again.
    bool publish();

    /// Stops the timer, shuts the providers down, unloads the vendors' libraries and detaches the segment.
    /// May be called more than once.
    void finish();

    const GpuInfoBlock& gpuList() const { return list; }

  public slots:
    /// One cycle: refreshes the figures, rebuilds the list, prints the report, publishes.
    void update();

  private:
    void resetList();
    void collect(const GpuVendor& vendor, const GpuInfo* provider, int firstIndex);
    void summarise();
    bool writeList();

    GpuInfoBlock list;
    int updateIntervalMs = 4000;
    QTimer timer;
    Vendors vendors;
    qzSharedMemory segment;

  public:
    bool doBenchmark = false; ///< set before `init`
    bool singleRun = false;   ///< set before `init`: one update, no segment
};
