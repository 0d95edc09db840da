/*
 * The library's reader/writer lock (tReaderWriterLock): two mutexes, two manual-reset events,
 * an atomic reader count and an atomic writer flag, with readers that back off while a writer
 * is draining or inside.
 *
 * Granularity: every atomic read-modify-write of readerCount or writerActive is one step, and
 * every load or store is its own step. An event is its `signalled` flag; its guard mutex makes
 * set, reset and the test inside wait each indivisible, so each is one step here, and a wait
 * that finds the flag clear blocks until some set makes it true (`drained == 1` as a guard). The
 * condition variable's wake-ups, spurious or not, only re-test the flag, which the guard models.
 *
 * The last reader to leave during a drain (fetch_sub saw 1) takes gateMutex and sets
 * readersDrained only if readerCount is still 0. Two readers can both take the count from 1 to
 * 0 in one drain (the second one arrived and backed off in between); the slower one's set must
 * not land after the writer's release has reset the event, or the next writer walks in on a
 * reader. Under gateMutex the re-check either sees the count raised by that release, or runs
 * before the release begins.
 *
 * Proved, for READERS readers and 2 writers, each looping for ever:
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

byte readerCount = 1;           /* starts at 1: the count a writer takes away */
bit writerActive = 0;
byte writerMutex = 0, gateMutex = 0;   /* owner's pid + 1, 0 when free */
bit drained = 0;                /* readersDrained: manual reset, created not signalled */
bit gone = 1;                   /* writerGone: manual reset, created signalled */
byte rIn = 0, wIn = 0;          /* ghosts: who is inside */
bit wait0, wait1, in0, in1;     /* ghosts: writer 0/1 holds writerMutex, is inside */

#define lock(m)   atomic { m == 0 -> m = _pid + 1 }
#define unlock(m) d_step { assert(m == _pid + 1); m = 0 }

/* Takes one count away; the reader that takes the last one tells the draining writer.
 * `held`: the caller already holds gateMutex (the mutex is recursive). */
inline leaveReaderCount(held) {
  d_step { last = (readerCount == 1); readerCount-- };
  if
  :: last ->
     last = 0;
#if defined(UNCHECKED_LAST_SET)
     drained = 1
#elif defined(RECHECK_UNGATED)
     if :: readerCount == 0 -> drained = 1 :: else fi
#else
     if :: !held -> lock(gateMutex) :: else fi;
     if :: readerCount == 0 -> drained = 1 :: else fi;
     if :: !held -> unlock(gateMutex) :: else fi
#endif
  :: else
  fi
}

active [READERS] proctype Reader() {
  bit last;
end:
  do
  :: /* acquireShared */
     readerCount++;
     if
     :: writerActive == 0
     :: else ->
#ifdef NO_BACKOFF
        skip        /* ignores the writer */
#else
#ifndef HOLD_COUNT
        lock(gateMutex);
        leaveReaderCount(1);
        unlock(gateMutex);
#endif
        gone == 1;  /* wait writerGone */
        goto retry
#endif
     fi;
     atomic { rIn++; assert(wIn == 0) };
     rIn--;
     /* releaseShared */
     leaveReaderCount(0);
retry:
     skip
  od
}

active [2] proctype Writer() {
  bit last;
end:
  do
  :: /* acquireExclusive */
     atomic { lock(writerMutex); if :: _pid == READERS -> wait0 = 1 :: else -> wait1 = 1 fi };
#ifdef POLITE_WRITER
polite:
#endif
     gone = 0;
     writerActive = 1;
#ifdef POLITE_WRITER
     /* goes in only when no reader is counted, else steps back and lets readers through */
     d_step { last = (readerCount == 1); if :: last -> readerCount = 0 :: else fi };
     if
     :: last -> last = 0; drained = 1
     :: else -> lock(gateMutex); writerActive = 0; gone = 1; unlock(gateMutex); goto polite
     fi;
#else
     d_step { last = (readerCount == 1); readerCount-- };
     if
     :: last -> last = 0; drained = 1
     :: else -> drained == 1    /* wait readersDrained */
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
     readerCount++;
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
