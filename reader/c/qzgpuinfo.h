/* Reads the GPU list that qzGpuInfo publishes in shared memory, from C99 or C++; link with -lqzgpuinfo.
 *
 *     qzgpuinfo_reader* reader = NULL;
 *     qzgpuinfo_state state = {.size = sizeof state};
 *     if (qzgpuinfo_open(NULL, &reader) == QZGPUINFO_OK && qzgpuinfo_read(reader, 1000, &state) ==
 * QZGPUINFO_OK)
 *         ... state.gpu_count, qzgpuinfo_get_gpu(reader, 0, &gpu) ...
 *     qzgpuinfo_close(reader);
 *
 * Structures. The caller sets `size` to sizeof before each call. A later version of the library adds members
 * at the end only: it fills no more than `size` bytes, and sets to zero what it does not know of a longer
 * structure. A `size` below that of version 1 is QZGPUINFO_INVALID_ARGUMENT.
 *
 * Errors. No call aborts, throws, prints or changes errno. A null pointer where none is allowed is
 * QZGPUINFO_INVALID_ARGUMENT. A call that fails leaves the caller's structure alone, except qzgpuinfo_read,
 * which fills it whatever the result unless that is QZGPUINFO_INVALID_ARGUMENT.
 *
 * Threads. Different readers may be used by different threads at the same time, a single one by one thread at
 * a time. After a fork, parent and child may both go on with their copy. No call is safe in a signal handler.
 *
 * The segment is never modified. A reader holds no descriptor between two calls.
 */
#ifndef QZGPUINFO_H
#define QZGPUINFO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The interface that this header describes. Rises when functions or members are added. */
#define QZGPUINFO_API_VERSION 1

/* Bytes of a name with its NUL. */
#define QZGPUINFO_NAME_SIZE 192

typedef enum qzgpuinfo_result {
    QZGPUINFO_OK = 0,
    QZGPUINFO_MISSING = 1,   /* no segment: no companion runs, or it has only just started */
    QZGPUINFO_NOT_READY = 2, /* the companion's first update cycle is not done yet */
    QZGPUINFO_FOREIGN = 3, /* another layout version, impossible counts, or not a plain file with one link */
    QZGPUINFO_TOO_SMALL = 4, /* fewer bytes than a list has */
    QZGPUINFO_LOCKED = 5,    /* another process held the lock for the whole time allowed */
    QZGPUINFO_PERMISSION_DENIED =
        6,                  /* not readable, or other users may write to it: its bytes are not trusted */
    QZGPUINFO_IO_ERROR = 7, /* the system refused an operation; see system_error */
    QZGPUINFO_INVALID_ARGUMENT = 8, /* a null pointer or a size that is too small */
    QZGPUINFO_OUT_OF_RANGE = 9,     /* no GPU has this index */
    QZGPUINFO_OUT_OF_MEMORY = 10
} qzgpuinfo_result;

typedef enum qzgpuinfo_freshness {
    QZGPUINFO_FRESH = 0,
    QZGPUINFO_UNPUBLISHED = 1, /* no living process has published this list */
    QZGPUINFO_AHEAD = 2,       /* dated more than 10 s in the future, as after the clock was set back */
    QZGPUINFO_TOO_OLD = 3      /* older than 20 s, or 1800 s while a companion is measuring */
} qzgpuinfo_freshness;

typedef enum qzgpuinfo_kind {
    QZGPUINFO_KIND_OTHER = 0,
    QZGPUINFO_KIND_CUDA = 1, /* NVIDIA */
    QZGPUINFO_KIND_AMD = 2,
    QZGPUINFO_KIND_METAL = 3, /* Apple */
    QZGPUINFO_KIND_SUMMARY = 4,
    QZGPUINFO_KIND_UNKNOWN = 255
} qzgpuinfo_kind;

typedef struct qzgpuinfo_reader qzgpuinfo_reader;

/* What qzgpuinfo_read found. Flags are 0 or 1. */
typedef struct qzgpuinfo_state {
    uint32_t size;
    uint32_t gpu_count;   /* GPUs in the list; 0 unless the result is QZGPUINFO_OK */
    uint32_t freshness;   /* a qzgpuinfo_freshness; of a list only */
    int32_t system_error; /* errno of the failed operation, else 0 */
    uint8_t opened;       /* a segment of this user exists; what follows is meaningful then */
    uint8_t attached;     /* a living process may publish on it */
    uint8_t published;    /* a living process has published on it */
    uint8_t measuring;    /* a living process is in an update cycle with benchmarks */
    uint8_t reserved[4];  /* 0 */
    double published_at;  /* last publication, seconds since 1970 (UTC) */
    double age_seconds;   /* time since then; below 0 if that is in the future */
} qzgpuinfo_state;

/* One GPU, or the summary over all. A figure is known only while its `has_` flag is 1: 0 is a reading. */
typedef struct qzgpuinfo_gpu {
    uint32_t size;
    uint32_t kind;           /* a qzgpuinfo_kind */
    int32_t device_index;    /* number among the vendor's GPUs; -1: none, 99: the summary */
    uint8_t listed;          /* found in the latest update cycle */
    uint8_t answering;       /* gave its load, temperature or used memory in that cycle */
    uint8_t opencl_matched;  /* paired with an OpenCL device */
    uint8_t optix_capable;   /* NVIDIA: compute capability 7.5 or newer */
    uint8_t amd_ray_tracing; /* AMD: its OpenCL device offers ray tracing */
    uint8_t has_usage;
    uint8_t has_temperature;
    uint8_t has_memory_total;
    uint8_t has_memory_used;
    uint8_t has_memory_free;
    uint8_t has_speed;
    uint8_t reserved; /* 0 */
    int32_t usage_percent;
    int32_t temperature_celsius;
    int32_t memory_total_mib;
    int32_t memory_used_mib;
    int32_t memory_free_mib;
    float speed_gps;                /* benchmark score in GPS */
    char name[QZGPUINFO_NAME_SIZE]; /* UTF-8, NUL-terminated; what was not UTF-8 is U+FFFD */
} qzgpuinfo_gpu;

/* The interface version of the library that is loaded: its QZGPUINFO_API_VERSION. */
uint32_t qzgpuinfo_api_version(void);

/* One sentence without a full stop; never null, whatever the number. Not to be freed. */
const char* qzgpuinfo_result_text(int result);

/* "Other", "Cuda", "AMD", "Metal", "-" (the summary) or "unknown". Not to be freed. */
const char* qzgpuinfo_kind_text(uint32_t kind);

/* Creates a reader of the segment in `directory`; NULL means /dev/shm. The segment need not exist yet.
 * QZGPUINFO_OK, QZGPUINFO_INVALID_ARGUMENT or QZGPUINFO_OUT_OF_MEMORY; sets *reader to NULL where it fails.
 */
qzgpuinfo_result qzgpuinfo_open(const char* directory, qzgpuinfo_reader** reader);

/* The same for the segment of a given user, by number, instead of the process's effective user. The segment
 * of anyone else is refused with QZGPUINFO_PERMISSION_DENIED. Only root can read another user's. */
qzgpuinfo_result qzgpuinfo_open_user(const char* directory, uint32_t user, qzgpuinfo_reader** reader);

/* Releases a reader; NULL is ignored. */
void qzgpuinfo_close(qzgpuinfo_reader* reader);

/* Copies the list under the segment's lock, for which it waits at most `lock_wait_ms` milliseconds; the
 * reader keeps the copy until the next read. `state` may be NULL. Any result but QZGPUINFO_OUT_OF_RANGE. */
qzgpuinfo_result qzgpuinfo_read(qzgpuinfo_reader* reader, uint32_t lock_wait_ms, qzgpuinfo_state* state);

/* A GPU of the list that was read last: all NVIDIA, then all AMD, then all Apple.
 * QZGPUINFO_OK, QZGPUINFO_OUT_OF_RANGE or QZGPUINFO_INVALID_ARGUMENT. */
qzgpuinfo_result qzgpuinfo_get_gpu(const qzgpuinfo_reader* reader, uint32_t index, qzgpuinfo_gpu* gpu);

/* The summary of that list: usage and score are sums, the temperature is the highest, total and free memory
 * are the smallest (at most 65535), used memory is the largest. It has no figure without a list. QZGPUINFO_OK
 * or QZGPUINFO_INVALID_ARGUMENT. */
qzgpuinfo_result qzgpuinfo_get_summary(const qzgpuinfo_reader* reader, qzgpuinfo_gpu* summary);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
