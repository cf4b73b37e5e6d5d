/* SPDX-License-Identifier: BSD-3-Clause */
/* Copyright (c) 2026 the Tresk authors */

/* What all models of the cache share: counted data, creators, the books of the cache, and the pass that evicts.
 *
 * A model that includes this file first defines NTHREADS (threads are numbered from 1), NRECORDS, LIMIT, BYTES0 and
 * BYTES1 (bytes of the data of creator 0 and 1), and anywhere the inlines Release(c), which is Creature::release, and
 * BeginEndOfCreator(c), which is what its destructor does before the data go.
 *
 * What stands for what
 *   CopySlot, DropData        StrongPtr::acquire and drop (step by step in DataSlot.pml and CountedPointers.pml)
 *   DropCreator               StrongPtr::drop of a creator, ~CreatorBase
 *   PreDestructor             Cacheable::PreDestructor, CacheBooks::bury
 *   SetCreator                Cacheable::setCreator, CacheBooks::list
 *   Note, HandIn              UseBatch::note, ThreadBooks::handIn
 *   Settle                    ThreadBooks::settle with the passes of CachePass.cpp, at the end of a CacheOperation
 *   GiveChargeBack            CacheBooks::settleCharge
 *   Enter, Leave              CacheBooks::moveToEnd, unlist: the ring of CacheEntry
 *   MakeData                  ReferenceRecord::allocate for data that a production makes
 *   ClearTag                  CacheBooks::unlist, which leaves 0 in ReferenceRecord::tag
 *   AccountForVictim          Pass::book
 *   ForgetPass, EndPass       Pass::end and finish
 *   record            a reference record. It is used again at once, lowest number first, so that a number that somebody
 *                     has kept leads to other data as often as possible.
 *   tag               Tags are serial numbers and never repeat, so all that counts of a remembered tag is whether it is
 *                     still that of the record: one bit beside each remembered record, set by whoever remembers and
 *                     cleared with the tag of the record. So the states do not multiply with the past.
 *   copy of a slot    one step; weak first, the source once more, then strong comes to that.
 *   cache mutex       a section that reads only what the mutex guards is one step, which waits until the mutex is free.
 *                     The search for a victim reads counts that other threads change, and spans steps with the mutex
 *                     held.
 *
 * Properties, in every reachable state
 *   - the memory of data and creators is touched only while it is there, and is given back once;
 *   - the books are touched under the mutex only;
 *   - whenever the mutex is given back: the held bytes are those of the linked data, the leaving bytes those of the
 *     data marked so, and held <= limit + in flight + leaving, but for bytes that a pass has asked for in vain or found
 *     in use;
 *   - a pass asks for each of the data once at most;
 *   - nobody waits for good.
 *
 * Mutations, each of which has to be found: a macro WITHOUT_... takes one rule away.
 */

#define NIL 0
#define BYTES(c) ((c) == 0 -> BYTES0 : BYTES1)

/* Counted data, by record from 1. */
byte strong[NRECORDS + 1];
bit hasMemory[NRECORDS + 1];  /* the object's memory may be touched; without it the record lies in the pool */
bit hasObject[NRECORDS + 1];  /* the object pointer of the record is not null */

/* Creators 0 and 1. */
byte slot[2];  /* record of the data that the creator holds, or NIL */
byte nHolders[2];
bit creatorHasMemory[2];
bit creationMutex[2];

/* The books. */
#define UNLINKED 0
#define LINKED 1
#define LEAVING 2
byte cacheMutex;             /* thread that holds the mutex, or 0 */
byte place[NRECORDS + 1];    /* of the data: UNLINKED, LINKED or LEAVING; their tag is set unless they are UNLINKED */
byte owner[NRECORDS + 1];    /* creator of linked data */
byte ring[NRECORDS];         /* the linked data, least recently used first */
byte nLinked;
byte held;
byte leaving;
byte inFlight;
byte conceded;               /* ghost: bytes above the limit that a pass has asked for in vain or found in use */

/* What a thread remembers of data that it does not hold. */
byte noted[NTHREADS + 1];    /* its batch of uses, of capacity 1: a record or NIL */
bit isNotedCurrent[NTHREADS + 1];
byte victim[NTHREADS + 1];   /* what its pass asks for: a record or NIL */
bit isVictimCurrent[NTHREADS + 1];
byte refused[NTHREADS + 1];  /* bit r: the data of record r have been asked for in vain in this pass */
byte asked[NTHREADS + 1];    /* ghost; bit r: the data of record r have been asked for in this pass */

#ifdef WITHOUT_REFUSALS_OF_EACH_PASS
/* One mark in the data, which the passes of two threads overwrite. */
byte refusedLast[NRECORDS + 1];
#define MARK_REFUSED(r) refusedLast[r] = me
#define HAS_REFUSED(r) (refusedLast[r] == me)
#define FORGET_REFUSALS \
  i = 1; \
  do \
  :: i <= NRECORDS -> refusedLast[i] = (refusedLast[i] == me -> 0 : refusedLast[i]); i++ \
  :: else -> break \
  od; \
  i = 0
#define FORGET_REFUSALS_OF(r) refusedLast[r] = 0
#elif defined(WITHOUT_REFUSALS)
#define MARK_REFUSED(r) skip
#define HAS_REFUSED(r) false
#define FORGET_REFUSALS skip
#define FORGET_REFUSALS_OF(r) skip
#else
#define MARK_REFUSED(r) refused[me] = refused[me] | (1 << r)
#define HAS_REFUSED(r) (refused[me] & (1 << r))
#define FORGET_REFUSALS refused[me] = 0
#define FORGET_REFUSALS_OF(r) skip
#endif

/* Scratch variables of a thread. All are 0 between the operations. */
#define THREAD_LOCALS \
  byte charge;        /* bytes in flight on this thread */ \
  byte i; \
  byte position; \
  byte creator; \
  byte dying; \
  bit isLast; \
  bit isShared; \
  bit isReleased; \
  bit isEarly;        /* the pass has given its charge back before the answer */ \
  bit isGoing; \
  bit isSearching; \
  bit isFound; \
  bit isAsking

#define BYTES_LINKED(r) (place[r] != UNLINKED -> BYTES(owner[r]) : 0)
#define BYTES_LEAVING(r) (place[r] == LEAVING -> BYTES(owner[r]) : 0)
#if NRECORDS == 4
#define SUM(f) (f(1) + f(2) + f(3) + f(4))
#elif NRECORDS == 5
#define SUM(f) (f(1) + f(2) + f(3) + f(4) + f(5))
#elif NRECORDS == 6
#define SUM(f) (f(1) + f(2) + f(3) + f(4) + f(5) + f(6))
#endif

#define FITS (held - leaving <= LIMIT + inFlight - charge)
#define EXCESS (held - LIMIT - inFlight - leaving)

#define TOUCH(r) assert(hasMemory[r])
#define TOUCH_CREATOR(c) assert(creatorHasMemory[c])
#define TOUCH_BOOKS assert(cacheMutex == me)

#define LOCK_CACHES cacheMutex == 0 -> cacheMutex = me
#define UNLOCK_CACHES \
  TOUCH_BOOKS; \
  assert(held == SUM(BYTES_LINKED)); \
  assert(leaving == SUM(BYTES_LEAVING)); \
  assert(EXCESS <= conceded); \
  conceded = (EXCESS > 0 -> EXCESS : 0); \
  cacheMutex = 0

/* The ring. */
inline Enter(r) {
  TOUCH_BOOKS;
  TOUCH(r);
  ring[nLinked] = r;
  nLinked++
}
inline Leave(r) {
  TOUCH_BOOKS;
  TOUCH(r);
  i = 0;
  do
  :: i < nLinked && ring[i] != r -> i++
  :: else -> break
  od;
  assert(i < nLinked);
  do
  :: i + 1 < nLinked ->
     TOUCH(ring[i + 1]);
     ring[i] = ring[i + 1];
     i++
  :: else -> break
  od;
  nLinked--;
  ring[nLinked] = NIL;
  i = 0
}

/* The tag of the record is cleared: what anybody remembers of it is outdated from here on. */
inline ClearTag(r) {
  FORGET_REFUSALS_OF(r);
  i = 1;
  do
  :: i <= NTHREADS ->
     isNotedCurrent[i] = isNotedCurrent[i] && noted[i] != r;
     isVictimCurrent[i] = isVictimCurrent[i] && victim[i] != r;
     refused[i] = refused[i] & (255 - (1 << r));
     asked[i] = asked[i] & (255 - (1 << r));
     i++
  :: else -> break
  od;
  i = 0
}

/* A new object on a free record, held by this thread. */
inline MakeData(r) {
  atomic {
    r = 1;
    do
    :: r <= NRECORDS && hasMemory[r] -> r++
    :: else -> break
    od;
    assert(r <= NRECORDS);
    hasMemory[r] = 1;
    hasObject[r] = 1;
    strong[r] = 1
  }
}

/* A copy of the data in the slot, or NIL. */
inline CopySlot(c, r) {
  atomic {
    TOUCH_CREATOR(c);
    r = slot[c];
    if
    :: r != NIL ->
       TOUCH(r);
       assert(strong[r] > 0);
       strong[r]++
    :: else
    fi
  }
}

inline PreDestructor(r) {
  atomic {
#ifdef WITHOUT_MUTEX_IN_PRE_DESTRUCTOR
    skip;
#else
    LOCK_CACHES;
#endif
    TOUCH(r);
    if
    :: place[r] != UNLINKED ->
       Leave(r);
       assert(held >= BYTES(owner[r]));
       held = held - BYTES(owner[r]);
       if
       :: place[r] == LEAVING ->
          assert(leaving >= BYTES(owner[r]));
          leaving = leaving - BYTES(owner[r])
       :: else
       fi;
       place[r] = UNLINKED;
       owner[r] = 0;
       ClearTag(r)
    :: else
    fi;
    UNLOCK_CACHES
  }
}

/* Gives a strong reference up. The last one destroys the object. */
inline DropData(r) {
  atomic {
    TOUCH(r);
    assert(strong[r] > 0);
    strong[r]--;
    isLast = (strong[r] == 0)
  };
  if
  :: isLast ->
     atomic { isLast = 0; hasObject[r] = 0 };
     PreDestructor(r);
     atomic { TOUCH(r); assert(place[r] == UNLINKED); hasMemory[r] = 0 }
  :: else
  fi
}

/* Gives a strong reference to a creator up. The last one destroys it, and with it its reference to the data. */
inline DropCreator(c) {
  atomic {
    TOUCH_CREATOR(c);
    assert(nHolders[c] > 0);
    nHolders[c]--;
    isLast = (nHolders[c] == 0)
  };
  if
  :: isLast ->
     isLast = 0;
     BeginEndOfCreator(c);
     atomic { assert(!creationMutex[c]); dying = slot[c]; slot[c] = NIL };
     if
     :: dying != NIL -> DropData(dying)
     :: else
     fi;
     atomic { TOUCH_CREATOR(c); creatorHasMemory[c] = 0; dying = NIL }
  :: else
  fi
}

/* Data get their creator. Those that are linked already stay as they are. */
inline SetCreator(r, c) {
  atomic {
    LOCK_CACHES;
    TOUCH(r);
    TOUCH_CREATOR(c);
    if
    :: place[r] == UNLINKED ->
       place[r] = LINKED;
       owner[r] = c;
       Enter(r);
       held = held + BYTES(c);
       inFlight = inFlight + BYTES(c);
       charge = charge + BYTES(c)
    :: else
    fi;
    UNLOCK_CACHES
  }
}

/* Takes the batch of this thread into the order of use. */
inline HandIn() {
  if
  :: noted[me] != NIL ->
     if
#ifdef WITHOUT_TAG_OF_USES
     :: hasObject[noted[me]] ->
#elif defined(WITHOUT_OBJECT_OF_USES)
     :: isNotedCurrent[me] ->
#else
     :: isNotedCurrent[me] && hasObject[noted[me]] ->
#endif
        assert(hasObject[noted[me]] && isNotedCurrent[me]);
        Leave(noted[me]);
        Enter(noted[me])
     :: else
     fi;
     noted[me] = NIL;
     isNotedCurrent[me] = 0
  :: else
  fi
}

/* Notes a use of data that this thread holds. Nothing is counted: they may be gone before the batch is handed in. */
inline Note(r) {
  if
  :: place[r] != UNLINKED ->
     if
     :: noted[me] != NIL -> atomic { LOCK_CACHES; HandIn(); UNLOCK_CACHES }
     :: else
     fi;
     atomic { noted[me] = r; isNotedCurrent[me] = 1 }
  :: else
  fi
}

/* Gives the bytes in flight of this thread back. */
inline GiveChargeBack() {
  assert(inFlight >= charge);
  inFlight = inFlight - charge
}

inline ForgetPass() {
  charge = 0;
  FORGET_REFUSALS;
  asked[me] = 0;
  isGoing = 0
}
inline EndPass() {
  ForgetPass();
  isSearching = 0;
  position = 0;
  UNLOCK_CACHES
}

/* A victim of the round before that has not gone stays. */
inline AccountForVictim() {
  if
  :: victim[me] != NIL ->
     if
#ifdef WITHOUT_TAG_OF_VICTIMS
     :: true ->
#else
     :: isVictimCurrent[me] ->
#endif
        assert(place[victim[me]] == LEAVING && leaving >= BYTES(owner[victim[me]]));
#ifndef WITHOUT_UNMARKING
        place[victim[me]] = LINKED;
        leaving = leaving - BYTES(owner[victim[me]]);
        conceded = conceded + BYTES(owner[victim[me]]);
#endif
        MARK_REFUSED(victim[me])
     :: else
     fi;
     if
     :: isEarly ->
        inFlight = inFlight + charge;
        isEarly = 0
     :: else
     fi;
     victim[me] = NIL;
     isVictimCurrent[me] = 0
  :: else
  fi
}

#define CANDIDATE ring[position]

/* The pass at the end of an outermost operation, on a thread that holds nothing. */
inline Settle() {
  isGoing = 1;
  do
  :: isGoing ->
     atomic {
       LOCK_CACHES;
       AccountForVictim();
       HandIn();
       if
       :: FITS -> GiveChargeBack(); EndPass()
       :: else -> isSearching = 1
       fi
     };
     do
     :: isSearching ->
        /* One look at one count. */
        atomic {
          if
          :: position == nLinked ->
             /* The limit cannot be held now. */
#ifndef WITHOUT_GIVING_THE_CHARGE_BACK
             GiveChargeBack();
#endif
             conceded = (EXCESS > conceded -> EXCESS : conceded);
             EndPass()
          :: position < nLinked && place[CANDIDATE] == LINKED && strong[CANDIDATE] == 1 && !HAS_REFUSED(CANDIDATE) ->
             isFound = 1
          :: else -> position++
          fi
        };
        if
        :: isFound ->
           atomic {
             TOUCH_BOOKS;
             TOUCH(CANDIDATE);
             isFound = 0;
             creator = owner[CANDIDATE];
             if
#ifdef WITHOUT_PIN_IF_ALIVE
             :: true ->
#else
             :: nHolders[creator] > 0 ->
#endif
                nHolders[creator]++;
                assert(!(asked[me] & (1 << CANDIDATE)));
                asked[me] = asked[me] | (1 << CANDIDATE);
                victim[me] = CANDIDATE;
                isVictimCurrent[me] = 1;
                place[CANDIDATE] = LEAVING;
                leaving = leaving + BYTES(creator);
                if
                :: FITS -> GiveChargeBack(); isEarly = 1
                :: else
                fi;
                isAsking = 1;
                isSearching = 0;
                position = 0;
                UNLOCK_CACHES
             :: else -> MARK_REFUSED(CANDIDATE); creator = 0; position++
             fi
           }
        :: else
        fi
     :: else -> break
     od;
     if
     :: isAsking ->
        Release(creator);
        DropCreator(creator);
        atomic {
          if
          :: isReleased && !isVictimCurrent[me] && isEarly ->
             victim[me] = NIL;
             isEarly = 0;
             ForgetPass()
          :: else
          fi;
          creator = 0;
          isAsking = 0;
          isReleased = 0
        }
     :: else
     fi
  :: else -> break
  od
}
