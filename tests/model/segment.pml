/* The life of the segment: two companions that start, publish, end in order and are killed at any step, a reader,
 * another one that takes its time with the lock and may keep it for ever, and logouts that remove the name. spin visits
 * every state that any order of their steps leads to.
 *
 * Functions, flags and conditions have the names that they have in app/GpuInfo_Main*.cpp, support/qzSharedMemory.cpp,
 * support/segmentObject.cpp and reader/GpuSegmentReader.cpp. A step is one system call, or what has the same effect.
 * Not modelled: what a list says, foreign objects, system calls that fail. */

/* -DBROKEN=... breaks one rule or (the last two) claims more than holds, and spin has to find a counterexample:
 * system.model runs it with each. */
#define NOTHING 0
#define WRITER_WITHOUT_LOCK 1
#define READER_WITHOUT_LOCK 2
#define READY_WHILE_WRITING 3
#define PUBLISHED_WHEN_ATTACHED 4
#define PUBLISHED_AFTER_UNLOCK 5
#define MEASURING_TOO_LATE 6
#define MEASURING_TOO_SHORT 7
#define REMOVED_UNDER_OTHERS 8
#define EXCLUSIVE_OVER_SHARED 9
#define NAME_NOT_RESTORED 10
#define NAMELESS_ATTACHED 11
#define NAMED_BEFORE_ATTACHED 12
#define ENDLESS_WAIT 13
#define STALLED_REMOVAL_COUNTS 14
#define FOREIGN_REMOVAL_COUNTS 15
#ifndef BROKEN
#define BROKEN NOTHING
#endif

/* -DCOMPANIONS=1: the second never starts. -DAUTHOR: no list counts as published once its own publisher is gone, which
 * holds for one companion alone. */
#ifndef COMPANIONS
#define COMPANIONS 2
#endif

#define READER 2
#define SLOW 3
#define PROCESSES 4

/* The object that a process has open. One that lost its name is numbered by the first process that has it open, so that
 * states which differ in numbers alone are the same state. */
#define NONE 0
#define NAMED 1
#define nameless(p) (2 + (p))

mtype = { Ok, NotFound, LockFailed };

/* What processes hold, and the system releases when they die. */
byte held[PROCESSES];
bool locks[PROCESSES];     /* flock */
bool attached[2];          /* SegmentFlag::Attached, F_RDLCK */
bool removes[2];           /* the same byte, F_WRLCK */
bool hasPublished[2];      /* SegmentFlag::HasPublished */
bool measuring;            /* SegmentFlag::Measuring; only companion 0 benchmarks */

/* The object that has the name. */
bool exists;
bool dataReady;
bool mixed;                /* its pages are of two lists */

/* What is true, whatever flags and bytes say. */
bool published[2];         /* this process has published on the object that it has open */
bool late;                 /* companion 0 has published on it, and has been benchmarking since for more than 20 s */
bool accepts;              /* the reader is copying a list that is marked ready */
bool responsible[2];       /* removes the object that it has open when it ends, unless another one is attached */
bool abandoned;            /* everyone responsible for NAMED was killed */
byte lost[2];              /* cycles in a row that found no name to publish under */
bool peace;                /* no more logouts and kills */
#ifdef AUTHOR
bool orphaned;             /* the latest list of NAMED is one of a companion that is gone */
byte author;               /* whose it was */
#endif

hidden byte p;
hidden byte heir;

#define other(w) (1 - (w))
#define otherHas(w, what) (held[other(w)] == held[w] && what[other(w)])
#define otherIsThere(w) (otherHas(w, attached) || otherHas(w, removes))
#define someCompanionHas(what) (held[0] == NAMED && what[0] || held[1] == NAMED && what[1])
#define isLocked(o) (locks[0] && held[0] == (o) || locks[1] && held[1] == (o) || \
                     locks[READER] && held[READER] == (o) || locks[SLOW] && held[SLOW] == (o))

/* unlink: those who have NAMED open go on with a nameless object. */
inline removeName() {
    d_step {
        exists = false;
        dataReady = false;
        mixed = false;
        abandoned = false;
        heir = PROCESSES;
        for (p : 0 .. PROCESSES - 1) {
            if
            :: held[p] == NAMED ->
               if :: heir == PROCESSES -> heir = p :: else fi;
               held[p] = nameless(heir)
            :: else
            fi
        }
    }
}

/* close, by the process or by the system after its death. */
inline closeObject(w) {
    d_step {
        heir = PROCESSES;
        for (p : 0 .. PROCESSES - 1) {
            if
            :: p > w && held[w] == nameless(w) && held[p] == nameless(w) ->
               if :: heir == PROCESSES -> heir = p :: else fi;
               held[p] = nameless(heir)
            :: else
            fi
        }
#ifdef AUTHOR
        if :: held[w] == NAMED && dataReady && author == w -> orphaned = true :: else fi;
#endif
        held[w] = NONE;
        locks[w] = false;
        if :: w == READER -> accepts = false :: else fi;
        if
        :: w < READER ->
           attached[w] = false;
           removes[w] = false;
           hasPublished[w] = false;
           published[w] = false;
           responsible[w] = false
        :: else
        fi;
        if :: w == 0 -> measuring = false; late = false :: else fi
    }
}

inline kill(w) {
    if
    :: held[w] == NAMED && responsible[w] && !otherHas(w, responsible) -> abandoned = true
    :: else
    fi;
    closeObject(w)
}

/* What may happen in place of any step of a companion. */
#define orKilled :: atomic { !peace -> kill(w); goto over }

inline noLongerLate(w) {
    if :: w == 0 -> late = false :: else fi
}

inline setAttached(w) {
    attached[w] = true;
    hasPublished[w] = BROKEN == PUBLISHED_WHEN_ATTACHED;
    if :: held[w] == NAMED -> responsible[w] = true; abandoned = false :: else fi
}

/* openSegmentObject */
inline attach(w) {
    do
    :: atomic { !exists -> result = NotFound; break }
    :: atomic { exists -> held[w] = NAMED }
       if
       :: atomic { otherHas(w, removes) -> closeObject(w);
              if
              :: true /* again */
              :: result = LockFailed; break /* the last of several tries */
              fi
          }
       :: atomic { !otherHas(w, removes) -> setAttached(w) }
          if
          :: atomic { held[w] == NAMED || BROKEN == NAMELESS_ATTACHED -> result = Ok; break }
          :: atomic { held[w] != NAMED && BROKEN != NAMELESS_ATTACHED -> closeObject(w) } /* again: st_nlink is 0 */
          orKilled
          fi
       orKilled
       fi
    orKilled
    od
}

/* It has its flag before it has its name. */
inline createSharedMemory(w) {
    do
#if BROKEN == NAMED_BEFORE_ATTACHED
    :: atomic { !exists -> exists = true; held[w] = NAMED }
       atomic { setAttached(w); result = Ok; break }
#else
    :: atomic { !exists -> exists = true; held[w] = NAMED; setAttached(w); result = Ok; break }
#endif
    :: atomic { exists } /* AlreadyExists */
       attach(w);
       if
       :: atomic { result != NotFound -> break }
       :: atomic { result == NotFound }
       fi
    orKilled
    od
}

inline write(w, content, value) {
    assert(!(accepts && held[READER] == held[w])); /* nobody copies a torn list */
    if :: held[w] == NAMED -> content = value :: else fi
}

/* Three writes; a kill in the middle of the second ends it between its two pages. */
inline writeList(w) {
#if BROKEN != READY_WHILE_WRITING
    if :: atomic { true -> write(w, dataReady, false) } orKilled fi;
#endif
    if :: atomic { true -> write(w, mixed, true) } orKilled fi;
    if :: atomic { true -> write(w, mixed, false) } orKilled fi;
    if
    :: atomic { true -> write(w, dataReady, true); published[w] = true; noLongerLate(w) }
#ifdef AUTHOR
       atomic { if :: held[w] == NAMED -> author = w; orphaned = false :: else fi }
#endif
    orKilled
    fi
}

inline markPublished(w) {
    if :: atomic { true -> hasPublished[w] = true } orKilled fi
}

inline unlock(w) {
    if :: atomic { true -> locks[w] = false } orKilled fi
}

inline publish(w) {
    if
    :: atomic { held[w] != NONE -> result = Ok }
    :: atomic { held[w] == NONE } attach(w)
    fi;
    if
    :: atomic { result == LockFailed -> stalled(w) }
    :: atomic { result == NotFound || result == Ok && held[w] != NAMED -> /* isIntact: the name is gone */
           lost[w]++;
           assert(lost[w] < 2); /* published again within two cycles */
           closeObject(w) }
#if BROKEN != NAME_NOT_RESTORED
       createSharedMemory(w);
#endif
       if
       :: atomic { result == LockFailed -> stalled(w) }
       :: atomic { result != LockFailed }
       fi
    :: atomic { result == Ok && held[w] == NAMED -> lost[w] = 0 }
       if
       :: atomic { isLocked(held[w]) && BROKEN != ENDLESS_WAIT && BROKEN != WRITER_WITHOUT_LOCK -> noLongerLate(w) }
       :: atomic { !isLocked(held[w]) || BROKEN == WRITER_WITHOUT_LOCK -> locks[w] = BROKEN != WRITER_WITHOUT_LOCK }
          writeList(w);
#if BROKEN != PUBLISHED_AFTER_UNLOCK
          markPublished(w);
          unlock(w)
#else
          unlock(w);
          markPublished(w)
#endif
       orKilled
       fi
    orKilled
    fi
}

/* Another companion has stopped between its exclusive lock and its end, for longer than `attach` tries: this cycle does
 * not count. */
inline stalled(w) {
    if :: BROKEN != STALLED_REMOVAL_COUNTS -> lost[w] = 0 :: else fi
}

inline mark(w, isSet) {
    if
    :: atomic { w == 0 && held[w] != NONE -> measuring = isSet }
    :: atomic { w != 0 || held[w] == NONE }
    orKilled
    fi
}

/* updateUsage */
inline benchmark(w) {
    atomic { if :: w == 0 -> late = published[w] :: else fi }
}

inline update(w) {
#if BROKEN == MEASURING_TOO_LATE
    benchmark(w);
    mark(w, true);
#else
    mark(w, true);
    benchmark(w);
#endif
#if BROKEN == MEASURING_TOO_SHORT
    mark(w, false);
#endif
    publish(w);
    mark(w, false)
}

/* Removes what has the name. That is another object if a logout and a start came between the check and this: no system
 * call does both. */
inline unlinkName(w) {
    if
    :: exists ->
       if
       :: held[w] != NAMED && BROKEN != FOREIGN_REMOVAL_COUNTS -> lost[other(w)] = 0
       :: else
       fi;
       removeName()
    :: else
    fi
}

/* detach, removeIfLast */
inline detach(w) {
    if
    :: atomic { true -> hasPublished[w] = false; published[w] = false; lost[w] = 0; noLongerLate(w) }
    orKilled
    fi;
    if
    :: atomic { held[w] != NAMED -> closeObject(w) } /* leadsToOwned */
    :: atomic { held[w] == NAMED }
       if :: atomic { true -> attached[w] = BROKEN == EXCLUSIVE_OVER_SHARED } orKilled fi;
       if
       :: atomic { otherIsThere(w) && BROKEN != REMOVED_UNDER_OTHERS -> responsible[w] = false }
          if :: atomic { true -> closeObject(w) } orKilled fi
       :: atomic { !otherIsThere(w) || BROKEN == REMOVED_UNDER_OTHERS -> removes[w] = true }
          if
          :: atomic { held[w] != NAMED -> closeObject(w) } /* leadsToOwned */
          :: atomic { held[w] == NAMED }
             if :: atomic { true -> unlinkName(w) } orKilled fi;
             if :: atomic { true -> closeObject(w) } orKilled fi
          orKilled
          fi
       orKilled
       fi
    orKilled
    fi
}

proctype companion(byte w) {
    mtype result = Ok;
life:
    createSharedMemory(w);
    if
    :: result == Ok ->
       do
       :: atomic { true } update(w)
       :: atomic { true -> break }
       od;
       if
       :: held[w] != NONE -> detach(w)
       :: held[w] == NONE
       fi
    :: result == LockFailed
    fi;
over:
    atomic {
        assert(!exists || abandoned || held[other(w)] == NAMED); /* nothing is left after orderly ends */
        lost[w] = 0;
        result = Ok
    };
    goto life
}

proctype reader() {
end:
    do
    :: atomic { exists -> held[READER] = NAMED }
       if
       :: atomic { isLocked(held[READER]) && BROKEN != READER_WITHOUT_LOCK -> closeObject(READER) } /* Locked */
       :: atomic { held[READER] != NAMED && !isLocked(held[READER]) -> closeObject(READER) } /* st_nlink is 0 */
       :: atomic { held[READER] == NAMED && (!isLocked(NAMED) || BROKEN == READER_WITHOUT_LOCK) ->
              locks[READER] = BROKEN != READER_WITHOUT_LOCK;
              /* noteFreshness */
              assert(!someCompanionHas(hasPublished) || someCompanionHas(published)); /* no list of the dead is fresh */
              assert(someCompanionHas(hasPublished) || !someCompanionHas(published)); /* one of the living is */
              assert(!late || held[0] != NAMED || measuring);
#ifdef AUTHOR
              assert(!someCompanionHas(hasPublished) || !orphaned);
#endif
              /* copyOut, from the first byte */
              assert(!dataReady || !mixed || BROKEN == READER_WITHOUT_LOCK); /* no torn list is accepted */
              accepts = dataReady }
          atomic { closeObject(READER) } /* after the last */
       fi
    od
}

/* What befalls the others, until it ends: logouts, kills, and a reader that takes its time, and in the end may keep the
 * lock for ever. Whether such a reader has found the list whole makes no difference to the others. */
proctype misfortune() {
    do
    :: atomic { exists -> lost[0] = 0; lost[1] = 0; removeName() } /* a logout */
    :: atomic { held[SLOW] == NONE && exists && !isLocked(NAMED) -> held[SLOW] = NAMED; locks[SLOW] = true }
    :: atomic { held[SLOW] != NONE -> closeObject(SLOW) }
    :: atomic { true -> peace = true; break }
    od
}

init {
    atomic {
        run misfortune();
        run reader();
        run companion(0);
#if COMPANIONS > 1
        run companion(1)
#endif
    }
}
