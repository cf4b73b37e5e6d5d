/* SPDX-License-Identifier: BSD-3-Clause */
/* Copyright (c) 2026 the Tresk authors */

/* Asynchronous creators with their threads, the cache, two users, and a thread of the cache.
 *
 * What stands for what, beside Cache.pml
 *   Release, ForgetIfSole     AsynchronCreator::release, asked by a pass
 *   ReleaseDirectly           the same, called by a user
 *   BeginEndOfCreator         AsynchronCreator::~AsynchronCreator, ThreadReaper
 *   Produce                   AsynchronCreator::produce
 *   Create                    CreatorBase::create
 *   Request                   AsynchronCreator::request
 *   Work                      AsynchronCreator::createData on its thread; CreationMutex::announce
 *
 * There are NCREATORS creators, and NWORK threads for the requests that get through; later ones are turned down. The
 * function of a thread yields data or nothing. Each of the two users holds all creators, makes NOPS choices among
 * using, requesting, releasing and dropping a creator, keeps at most one of the data, and drops them at any time. With
 * REQUEST_FIRST user 1 requests first, and then both use or drop. With REQUEST_AND_DROP each user has a creator of its
 * own, requests it and drops it. The thread of the cache makes NPASSES passes at any time.
 * At the end, with nobody active: one more pass brings the held bytes to the limit. Then the creators go, and nothing
 * is left of them, their data and the books.
 *
 * Properties are those of Cache.pml.
 *
 * Waiting for the announcement, for the end of a thread and for a creation mutex are steps that block. A cycle of them
 * shows as an invalid end state.
 */

#ifndef NOPS
#define NOPS 2
#endif
#ifndef NPASSES
#define NPASSES 1
#endif
#ifndef NCREATORS
#define NCREATORS 1
#endif
#ifndef NWORK
#define NWORK 1
#endif
#ifndef LIMIT
#define LIMIT 0
#endif
#ifndef BYTES0
#define BYTES0 1
#endif
#ifndef BYTES1
#define BYTES1 1
#endif
#ifndef NRECORDS
#define NRECORDS 5
#endif
/* What user `me` holds at the beginning, bit c for creator c, and how many users hold a creator. */
#if NCREATORS == 1
#define HOLDINGS 1
#define NHOLDERS 2
#elif defined(REQUEST_AND_DROP)
#define HOLDINGS me
#define NHOLDERS 1
#else
#define HOLDINGS 3
#define NHOLDERS 2
#endif
/* The choices of a user. The variants are for programs of two steps, which are too many to try them all. */
#if defined(REQUEST_AND_DROP)
#define MAY_USE false
#define MAY_REQUEST (n == 1)
#define MAY_RELEASE false
#define MAY_DROP (n == 2)
#elif defined(REQUEST_FIRST)
#define MAY_USE (me == 2 || n == 2)
#define MAY_REQUEST (me == 1 && n == 1)
#define MAY_RELEASE false
#define MAY_DROP (n == 2)
#else
#define MAY_USE true
#define MAY_REQUEST true
#define MAY_RELEASE true
#define MAY_DROP true
#endif
/* Users are 1 and 2, work threads from 3, and the last one is that of the cache. */
#define NTHREADS (NWORK + 3)

#include "Cache.pml"

byte nActive;
bit isOver;

bit isUnderCreation[2];
bit isAnnounced[2];          /* the thread started last has had the creation mutex */
byte future[2];              /* the thread that the creator can wait for, or 0 */
byte nRequests;
bit isStarted[NTHREADS + 1];
bit isDone[NTHREADS + 1];    /* the thread can be joined without waiting */
byte creatorOf[NTHREADS + 1];

#define LOCK_CREATION(c) atomic { !creationMutex[c] -> TOUCH_CREATOR(c); creationMutex[c] = 1 }
#define UNLOCK_CREATION(c) atomic { TOUCH_CREATOR(c); assert(creationMutex[c]); creationMutex[c] = 0 }

/* Under the creation mutex: forgets the data if the creator is their only holder, and gives the mutex back. */
inline ForgetIfSole(c) {
  atomic {
    TOUCH_CREATOR(c);
    dying = slot[c];
    isShared = (dying != NIL && strong[dying] > 1)
  };
  if
  :: isShared -> atomic { isShared = 0; dying = NIL }
  :: else -> atomic { assert(slot[c] == dying); slot[c] = NIL; isReleased = 1 }
  fi;
  UNLOCK_CREATION(c);
  if
  :: dying != NIL -> DropData(dying); dying = NIL
  :: else
  fi
}

/* Asked by a pass: never waits for the creation mutex. Who holds it may be waiting for this very thread. */
inline Release(c) {
  atomic { TOUCH_CREATOR(c); isShared = isUnderCreation[c] };
  if
  :: isShared -> isShared = 0
  :: else ->
     atomic { TOUCH_CREATOR(c); isReleased = (slot[c] == NIL) };
     if
     :: isReleased
     :: else ->
#ifdef WITHOUT_TRYING_THE_MUTEX
        LOCK_CREATION(c);
        ForgetIfSole(c)
#else
        atomic { TOUCH_CREATOR(c); isShared = creationMutex[c]; creationMutex[c] = 1 };
        if
        :: isShared -> isShared = 0
        :: else -> ForgetIfSole(c)
        fi
#endif
     fi
  fi
}

/* Asked by a user, who may wait. */
inline ReleaseDirectly(c) {
  if
  :: isUnderCreation[c] || slot[c] == NIL
  :: else -> LOCK_CREATION(c); ForgetIfSole(c); isReleased = 0
  fi
}

/* The future goes first and waits for its thread, which on that thread is left to others. */
inline BeginEndOfCreator(c) {
  if
#ifdef WITHOUT_LEAVING_THE_OWN_THREAD
  :: future[c] != 0 -> isDone[future[c]]
#else
  :: future[c] != 0 && future[c] != me -> isDone[future[c]]
#endif
  :: else
  fi;
  future[c] = 0
}

/* The data, or those of the running thread, or those that the function makes here, which are not stored. */
inline Produce(c, r) {
  LOCK_CREATION(c);
  CopySlot(c, r);
  if
  :: r == NIL ->
#ifndef WITHOUT_ANNOUNCEMENT
     if
     :: future[c] != 0 && !isAnnounced[c] ->
        UNLOCK_CREATION(c);
        atomic { !creationMutex[c] && (isAnnounced[c] || future[c] == 0) -> TOUCH_CREATOR(c); creationMutex[c] = 1 }
     :: else
     fi;
#endif
     if
     :: future[c] != 0 -> isDone[future[c]]; future[c] = 0
     :: else
     fi;
     CopySlot(c, r);
     if
     :: r == NIL -> MakeData(r)
     :: else
     fi
  :: else
  fi;
  UNLOCK_CREATION(c)
}

inline Create(c, r) {
  CopySlot(c, r);
  if
  :: r != NIL -> Note(r)
  :: else ->
     Produce(c, r);
     SetCreator(r, c);
     Settle()
  fi
}

inline Request(c) {
  atomic { TOUCH_CREATOR(c); isShared = (slot[c] == NIL) };  /* the look for data comes before the flag */
  atomic {
    TOUCH_CREATOR(c);
    if
    :: isShared && !isUnderCreation[c] && nRequests < NWORK ->
       isUnderCreation[c] = 1;
       nRequests++;
       thread = nRequests + 2
    :: else
    fi;
    isShared = 0
  };
  if
  :: thread != 0 ->
     LOCK_CREATION(c);
     atomic {
       former = future[c];
       future[c] = thread;
       isAnnounced[c] = 0;
       creatorOf[thread] = c;
       isStarted[thread] = 1
     };
     UNLOCK_CREATION(c);
     thread = 0;
     if
     :: former != 0 -> isDone[former]; former = 0
     :: else
     fi
  :: else
  fi;
  Settle()
}

proctype User(byte me) {
  THREAD_LOCALS;
  byte n, c, mine, got, former, thread;
  byte holds = HOLDINGS;  /* bit c: this user holds creator c */

  do
  :: n < NOPS && holds != 0 ->
     atomic {
       n++;
       if
       :: holds & 1 -> c = 0
       :: holds & 2 -> c = 1
       fi
     };
     if
     :: MAY_USE ->
        Create(c, got);
        TOUCH(got);
        if
        :: mine != NIL -> DropData(mine)
        :: else
        fi;
        atomic { mine = got; got = NIL }
     :: MAY_REQUEST -> Request(c)
     :: MAY_RELEASE -> ReleaseDirectly(c)
     :: MAY_DROP ->
        holds = holds & (2 - c);
        DropCreator(c)
     fi;
     c = 0
  :: mine != NIL -> DropData(mine); mine = NIL
  :: mine == NIL && (n == NOPS || holds == 0) -> break
  od;
  atomic { n = 0; holds = 0; nActive-- }
}

/* The thread of a request. It holds the creator, if there still is one, until its pass is over. */
proctype Work(byte me) {
  THREAD_LOCALS;
  byte c, got, former;
  bit holds;

  if
  :: isStarted[me] ->
     atomic {
       c = creatorOf[me];
       holds = (nHolders[c] > 0);
       nHolders[c] = nHolders[c] + holds
     };
     if
     :: holds ->
        LOCK_CREATION(c);
        isAnnounced[c] = 1;
        if
        :: true ->
           MakeData(got);
           atomic { TOUCH_CREATOR(c); former = slot[c]; slot[c] = got; strong[got]++ };
           SetCreator(got, c);
           atomic {
             TOUCH(got);
             if
             :: strong[got] > 1 -> strong[got]--; got = NIL
             :: else
             fi
           }
        :: true
        fi;
        isUnderCreation[c] = 0;
        UNLOCK_CREATION(c);
        if
        :: former != NIL -> DropData(former); former = NIL
        :: else
        fi;
        if
        :: got != NIL -> DropData(got); got = NIL
        :: else
        fi;
#ifdef WITHOUT_HOLDING_THE_CREATOR
        DropCreator(c);
        Settle()
#else
        Settle();
        DropCreator(c)
#endif
     :: else
     fi
  :: isOver && !isStarted[me]
  fi;
  atomic { c = 0; holds = 0; isDone[me] = 1 }
}

proctype CacheThread(byte me; byte n) {
  THREAD_LOCALS;
  do
  :: n > 0 -> Settle(); n--
  :: else -> break
  od;
  nActive--
}

init {
  THREAD_LOCALS;
  byte me = NTHREADS;
  atomic {
    isAnnounced[0] = 1;
    isAnnounced[1] = 1;
    nHolders[0] = NHOLDERS;
    creatorHasMemory[0] = 1;
#if NCREATORS == 2
    nHolders[1] = NHOLDERS;
    creatorHasMemory[1] = 1;
#endif
    nActive = 2;
    run User(1);
    run User(2);
    run Work(3);
#if NWORK == 2
    run Work(4);
#endif
#if NPASSES > 0
    nActive++;
    run CacheThread(NTHREADS, NPASSES)
#endif
  };
  nActive == 0;
  isOver = 1;
  isDone[3];
#if NWORK == 2
  isDone[4];
#endif
  atomic { nActive = 1; run CacheThread(NTHREADS, 1) };
  nActive == 0;
  assert(held <= LIMIT && leaving == 0 && inFlight == 0);
  do
  :: nHolders[0] > 0 -> DropCreator(0)
  :: nHolders[0] == 0 && nHolders[1] > 0 -> DropCreator(1)
  :: nHolders[0] == 0 && nHolders[1] == 0 -> break
  od;
  assert(!creatorHasMemory[0] && !creatorHasMemory[1]);
  assert(held == 0 && leaving == 0 && inFlight == 0 && nLinked == 0);
  i = 1;
  do
  :: i <= NRECORDS -> assert(!hasMemory[i] && strong[i] == 0); i++
  :: else -> break
  od
}
