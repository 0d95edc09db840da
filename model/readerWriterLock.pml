/*
 * The library's reader/writer lock (tReaderWriterLock): two mutexes, two manual-reset events,
 * reader counts spread over slots and an atomic writer flag, with readers that back off while a
 * writer is draining or inside.
 *
 * Granularity: every atomic read-modify-write of a slot and every load or store of a slot or of
 * writerActive is one step; the writer's and the readers' sums read the slots one at a time, as
 * the code does. An event is its `signalled` flag; its guard mutex makes set, reset and the test
 * inside wait each indivisible, so each is one step here, and a wait that finds the flag clear
 * blocks until some set makes it true (`drained == 1` as a guard). The condition variable's
 * wake-ups, spurious or not, only re-test the flag, which the guard models.
 *
 * Readers share slots (reader i counts in slot i % SLOTS), as threads beyond the number of slots
 * do in the code. A reader that leaves, or backs off, while writerActive is raised takes
 * gateMutex and sets readersDrained only if writerActive is still raised and the slots sum to 0.
 * Two readers can both find the slots empty in one drain (the second one arrived and backed off
 * in between); the slower one's set must not land after the writer's release has reset the
 * event, or the next writer walks in on a reader. Under gateMutex the re-check either sees
 * writerActive lowered by that release, or runs before the release begins.
 *
 * Proved, for READERS readers in SLOTS slots and 2 writers, each looping for ever:
 *   - exclusion: a writer is inside alone; a reader is inside only while no writer is
 *     (assertions on entry);
 *   - no deadlock (invalid end states, -DSAFETY run);
 *   - a writer that holds writerMutex, i.e. that has begun to drain, gets in, however readers
 *     keep arriving (LTL w0 / w1 under weak fairness, pan -a -f).
 *
 * Planted faults (spin -DNAME), each of which Spin must catch: UNCHECKED_LAST_SET,
 * RECHECK_UNGATED, NO_BACKOFF, HOLD_COUNT, POLITE_WRITER (see README.md).
 */
#ifndef READERS
#define READERS 3
#endif
#ifndef SLOTS
#define SLOTS 2
#endif

byte slot[SLOTS];               /* readers counted, per slot */
bit writerActive = 0;
byte writerMutex = 0, gateMutex = 0;   /* owner's pid + 1, 0 when free */
bit drained = 0;                /* readersDrained: manual reset, created not signalled */
bit gone = 1;                   /* writerGone: manual reset, created signalled */
byte rIn = 0, wIn = 0;          /* ghosts: who is inside */
bit wait0, wait1, in0, in1;     /* ghosts: writer 0/1 holds writerMutex, is inside */

#define lock(m)   atomic { m == 0 -> m = _pid + 1 }
#define unlock(m) d_step { assert(m == _pid + 1); m = 0 }
#define mine      slot[_pid % SLOTS]

/* The readers counted, one slot load at a time, into the caller's `sum`. */
inline sumSlots() {
  d_step { sum = 0; k = 0 };
  do
  :: k < SLOTS -> d_step { sum = sum + slot[k]; k++ }
  :: else -> break
  od
}

/* setDrainedIfEmpty: called with gateMutex held (but for RECHECK_UNGATED). */
inline setDrainedIfEmpty() {
  if
  :: writerActive == 1 ->
     sumSlots();
     if :: sum == 0 -> drained = 1 :: else fi;
     d_step { sum = 0; k = 0 }   /* forgotten: stale locals would only multiply states */
  :: else
  fi
}

active [READERS] proctype Reader() {
  byte sum, k;
end:
  do
  :: /* acquireShared */
     mine++;
     if
     :: writerActive == 0
     :: else ->
#ifdef NO_BACKOFF
        skip        /* ignores the writer */
#else
#ifndef HOLD_COUNT
        /* backOff */
        lock(gateMutex);
        mine--;
        setDrainedIfEmpty();
        unlock(gateMutex);
#endif
        gone == 1;  /* wait writerGone */
        goto retry
#endif
     fi;
     atomic { rIn++; assert(wIn == 0) };
     rIn--;
     /* releaseShared */
     mine--;
     if
     :: writerActive == 1 ->
        /* tellDrainingWriter */
#if defined(UNCHECKED_LAST_SET)
        drained = 1
#elif defined(RECHECK_UNGATED)
        setDrainedIfEmpty()
#else
        lock(gateMutex);
        setDrainedIfEmpty();
        unlock(gateMutex)
#endif
     :: else
     fi;
retry:
     skip
  od
}

active [2] proctype Writer() {
  byte sum, k;
end:
  do
  :: /* acquireExclusive */
     atomic { lock(writerMutex); if :: _pid == READERS -> wait0 = 1 :: else -> wait1 = 1 fi };
#ifdef POLITE_WRITER
polite:
#endif
     gone = 0;
     writerActive = 1;
     sumSlots();
#ifdef POLITE_WRITER
     /* goes in only when no reader is counted, else steps back and lets readers through */
     if
     :: sum == 0 -> d_step { sum = 0; k = 0 }; drained = 1
     :: else -> d_step { sum = 0; k = 0 }; lock(gateMutex); writerActive = 0; gone = 1; unlock(gateMutex); goto polite
     fi;
#else
     if
     :: sum == 0 -> d_step { sum = 0; k = 0 }; drained = 1
     :: else -> d_step { sum = 0; k = 0 }; drained == 1    /* wait readersDrained */
     fi;
#endif
     atomic {
       wIn++;
       assert(wIn == 1 && rIn == 0);
       if :: _pid == READERS -> wait0 = 0; in0 = 1 :: else -> wait1 = 0; in1 = 1 fi
     };
     d_step { wIn--; in0 = 0; in1 = 0 };
     /* releaseExclusive */
     lock(gateMutex);
     drained = 0;
     writerActive = 0;
     gone = 1;
     unlock(gateMutex);
     unlock(writerMutex)
  od
}

/* A writer that has taken writerMutex gets in. (Which writer gets writerMutex next is up to the
 * mutex, which promises no order; that is not claimed.) */
ltl w0 { [] (wait0 -> <> in0) }
ltl w1 { [] (wait1 -> <> in1) }
