/*
 * In-order retirement of FIFO regions and the deferred close of the session they belong to.
 *
 * One session, registered under handle H, with two FIFOs. Regions are lent to the Host in order
 * before the Host threads start; Host threads then delete the references in any order, each
 * exactly once. A deletion retires regions strictly from the front of its FIFO's queue; one
 * deleted out of turn is only marked `released`. The Host's close is refused while a region is
 * out and leaves `closePending`; the retirement that empties a queue and finds the mark runs the
 * deferred close, which acts only on the record it saw and only while that record is marked.
 * The Host's program stop may close the session at any moment (once).
 *
 * Proved (assertions, invalid end states), for every interleaving:
 *   - every region is handed back exactly once, per FIFO in acquisition order, and only after
 *     its reference was deleted;
 *   - nothing is handed back after the session was closed in the driver; the driver closes the
 *     session exactly once, after all its regions are back, and the close that was refused is
 *     completed by the end;
 *   - a callback reads the record only while it is registered; a deferred close closes only the
 *     session instance it was run for; no thread blocks for ever.
 *
 * Configurations: by default the closing Host thread and two more threads delete the 2 x 2
 * regions. ACQUIRER replaces one deleting thread by one that lends a fifth region while the
 * session is registered, then deletes it. REOPEN adds a Host that opens again once the session
 * is closed and is handed the same handle, so a late deferred close meets a new record.
 * Planted faults, each of which Spin must catch: OLD_CLOSE, MARK_AFTER_UNLOCK, MARK_UNLOCKED,
 * EAGER_HANDBACK, RUN_ON, READ_AFTER_UNLOCK, NO_RECORD_CHECK (see README.md).
 */
#define NF 2            /* FIFOs of the session */
#define NR 2            /* regions lent per FIFO before the Host threads start */
#define MAXQ 3          /* room per FIFO: NR plus the acquirer's region */
#define NONE 255
#define REFUSED 1
#define CLOSED 2

byte regLock;                   /* registry lock; only its exclusive use matters here */
bit registered = 1;             /* a record is registered under H */
byte serial = 1;                /* that record's generation number */
bit closePending;               /* the record's mark */
byte acqMutex[NF], qMutex[NF];  /* owner's pid + 1, 0 when free */
byte head[NF], tail[NF];        /* the queue holds regions head .. tail-1, oldest first */
bit released[NF*MAXQ];          /* region id = fifo * MAXQ + index in acquisition order */
bit deleted[NF*MAXQ], handed[NF*MAXQ], taken[NF*MAXQ];   /* ghosts */
byte closes[3];                 /* driver closes per session instance (= serial) */
byte driverSession = 1;         /* the instance the driver's handle H stands for */

#define release(m) assert(m == _pid + 1); m = 0
#define lock(m)    atomic { m == 0 -> m = _pid + 1 }
#define unlock(m)  d_step { release(m) }

/* Ghost record of region k (index idx of its FIFO) going back to the driver. */
inline handBack(k, idx) {
  assert(deleted[k] && !handed[k] && closes[1] == 0);
  assert(idx == 0 || handed[k-1]);
  handed[k] = 1
}

/* The driver closes H: each instance once, and the first only when none of its regions is out. */
inline driverClose() {
  d_step {
    assert(closes[driverSession] == 0);
    assert(driverSession != 1 || (head[0] == tail[0] && head[1] == tail[1]));
    closes[driverSession]++
  }
}

/* Close steps shared by every close. The registry lock is held on entry, released on exit. */
inline closeSteps(result) {
  f2 = 0;
  do
  :: f2 < NF ->
     lock(acqMutex[f2]);
     lock(qMutex[f2]);
     if
     :: head[f2] != tail[f2] ->
#ifndef MARK_AFTER_UNLOCK
        closePending = 1;   /* under this queueMutex: its last retirement runs after and sees it */
#endif
        busy = 1
     :: else
     fi;
     unlock(qMutex[f2]);
     unlock(acqMutex[f2]);
#ifdef MARK_AFTER_UNLOCK
     if :: busy -> closePending = 1 :: else fi;
#endif
     f2++
  :: else -> f2 = 0; break
  od;
  if
  :: busy -> busy = 0; unlock(regLock); result = REFUSED
  :: else -> atomic { registered = 0; closedSer = serial; release(regLock) };
     driverClose(); result = CLOSED
  fi
}

/* Completes a refused close for the record `ser`, if it is still registered and still marked. */
inline deferredClose(ser) {
  lock(regLock);
#ifdef OLD_CLOSE
  /* the Host's close semantics: an unregistered handle is closed in the driver anyway */
  if
  :: !registered -> unlock(regLock); driverClose()
  :: else -> closeSteps(res)
  fi;
#else
  if
#ifdef NO_RECORD_CHECK
  :: !registered -> unlock(regLock)
#else
  :: !registered || serial != ser || !closePending -> unlock(regLock)
#endif
  :: else -> closePending = 0; closeSteps(res);
     assert(res != CLOSED || closedSer == ser)   /* it closed the session it was meant for */
  fi;
#endif
  ser = 0; res = 0; closedSer = 0
}

/* The Host deleted the reference of region i of FIFO f. */
inline onDeleted(f, i) {
#ifdef MARK_UNLOCKED
  deleted[f*MAXQ+i] = 1;
  if
  :: head[f] == tail[f] || head[f] != i -> released[f*MAXQ+i] = 1
  :: else ->
#endif
  atomic { qMutex[f] == 0 -> qMutex[f] = _pid + 1; deleted[f*MAXQ+i] = 1; assert(registered && serial == 1) };
  if
  :: head[f] == tail[f] || head[f] != i ->
#ifdef EAGER_HANDBACK
     d_step { handBack(f*MAXQ+i, i); released[f*MAXQ+i] = 1; release(qMutex[f]) }
#else
     d_step { released[f*MAXQ+i] = 1; release(qMutex[f]) }
#endif
  :: else ->
     /* hand back the front, then every marked region behind it; all under queueMutex */
     d_step {
       do
       :: handBack(f*MAXQ + head[f], head[f]);
          head[f]++;
          if
#ifdef RUN_ON
          :: head[f] == tail[f] -> break
#else
          :: head[f] == tail[f] || !released[f*MAXQ+head[f]] -> break
#endif
          :: else
          fi
       od
     };
     /* setting the FIFO's event is left out: it only wakes acquirers, which never wait here */
     if
     :: head[f] != tail[f] -> unlock(qMutex[f])
     :: else ->
#if defined(OLD_CLOSE)
        d_step { pend = closePending; closePending = 0; release(qMutex[f]) };
#elif defined(READ_AFTER_UNLOCK)
        unlock(qMutex[f]);
        d_step { assert(registered && serial == 1); pend = closePending; ser = serial };
#else
        d_step { assert(registered && serial == 1); pend = closePending; ser = serial; release(qMutex[f]) };
#endif
        /* from here on neither the FIFO state nor the record is touched */
        if :: pend -> pend = 0; deferredClose(ser) :: else fi
     fi
  fi
#ifdef MARK_UNLOCKED
  fi
#endif
}

/* Picks a region that no thread has claimed yet, or NONE. */
#define CLAIM(f, i) :: !taken[f*MAXQ+i] -> taken[f*MAXQ+i] = 1; cf = f; ci = i
inline claim() {
  atomic {
    if
    CLAIM(0, 0) CLAIM(0, 1) CLAIM(1, 0) CLAIM(1, 1)
    :: else -> cf = NONE
    fi
  }
}

inline deleteClaimed() {
  do
  :: claim();
     if
     :: cf == NONE -> break
     :: else -> onDeleted(cf, ci); cf = 0; ci = 0
     fi
  od
}

proctype Deleter() {
  byte cf, ci, f2, ser, res, closedSer;
  bit pend, busy;
  deleteClaimed()
}

/* The Host closes while it still holds region (hf, hi), so the close is refused; then it
 * deletes that region and helps with the rest. */
proctype HostCloser(byte hf, hi) {
  byte cf, ci, f2, ser, res, closedSer;
  bit pend, busy;
  lock(regLock);
  assert(registered);           /* it holds a region, so the session cannot have been closed */
  closeSteps(res);
  assert(res == REFUSED);
  res = 0;
  onDeleted(hf, hi);
  deleteClaimed()
}

/* Lends one more region on either FIFO while the session is registered, then deletes it. The
 * registry lock stands for the shared registry and record locks held while acquireMutex is
 * taken; the driver is assumed to have room, so the acquisition never waits. */
proctype Acquirer() {
  byte f, i, f2, ser, res, closedSer;
  bit pend, busy;
  lock(regLock);
  if
  :: !registered -> unlock(regLock)
  :: else ->
     if :: f = 0 :: f = 1 fi;
     lock(acqMutex[f]);
     unlock(regLock);
     lock(qMutex[f]);
     i = tail[f]; tail[f]++;
     unlock(qMutex[f]);
     unlock(acqMutex[f]);
     onDeleted(f, i)
  fi
}

/* After the session was closed, the Host opens again; the driver hands out the same handle H,
 * and a new record (serial 2, no regions) is registered under it. */
proctype Reopen() {
  atomic { closes[1] == 1 -> driverSession = 2 };
  lock(regLock);
  d_step { registered = 1; serial = 2; closePending = 0; release(regLock) }
}

/* The session's cleanup procedure at program stop: closes H only if a record is registered. */
proctype ProgramStop() {
  byte f2, res, closedSer;
  bit busy;
  lock(regLock);
  if
  :: registered -> closeSteps(res)
  :: else -> unlock(regLock)
  fi
}

init {
  byte cf, ci;
  atomic {
    tail[0] = NR; tail[1] = NR;
    claim();                    /* the region the closing Host thread holds */
    run HostCloser(cf, ci);
    run Deleter();
#ifdef ACQUIRER
    run Acquirer();
#else
    run Deleter();
#endif
    run ProgramStop();
#ifdef REOPEN
    run Reopen()
#endif
  }
  _nr_pr == 1;                  /* every thread has finished */
  assert(closes[1] == 1);       /* the refused close was completed */
#ifndef REOPEN
  assert(!registered);
#endif
  assert(head[0] == tail[0] && head[1] == tail[1])
}
