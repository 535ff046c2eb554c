/* A command that changes the rules and sets the named event, and a daemon that takes them, with the module's end
 * and the daemon's death between any two steps.
 *
 * The event is a FIFO: bytes in it are the signal, all of them are one, and they last as long as somebody has
 * it open.
 *
 * Proved: when nothing moves any more, and a daemon runs, it has the rules that are stored. A set event is
 * taken, however many sets there were.
 *
 * Runs, as it is and with a mechanism taken away:
 *   holds
 *   fails NOT_HELD          only the module has the event open, not the daemon for its life
 *   fails SET_BEFORE_STORE  the command sets the event before the rules are stored
 *   fails TAKEN_LATE        the event is taken after the rules were read
 */
#define COMMANDS 2
#define ENDS 1   /* of the module by itself */
#define DEATHS 1 /* of the daemon */
#define PIPE 2   /* bytes that fit; more are the same signal */

byte stored = 0; /* revision of the rules in the store */
byte loaded = 0; /* revision in the module's table */
byte bytes = 0;
byte holders = 0; /* who have the FIFO open */
bool rests = false;

inline OpenEvent() { holders++ }

inline CloseEvent() {
    d_step {
        holders--;
        if
        :: holders == 0 -> bytes = 0
        :: else
        fi
    }
}

/* code: agent/host/waitable.cc Set
 * code: agent/host/waitable.cc OpenFifo */
inline SetTheEvent() {
    OpenEvent();
    d_step {
        if
        :: bytes < PIPE -> bytes++
        :: else
        fi
    };
    CloseEvent()
}

proctype Command() {
#ifdef SET_BEFORE_STORE
    SetTheEvent();
#endif
    stored++;
#ifndef SET_BEFORE_STORE
    SetTheEvent()
#endif
}

#define MAY_DIE if :: deaths < DEATHS -> deaths++; goto dies :: skip fi
#define MAY_END if :: ends < ENDS -> ends++; goto module_ends :: skip fi

proctype Daemon() {
    byte deaths = 0;
    byte ends = 0;
    byte opened = 0;
starts:
    /* code: agent/daemon/named_events.h NamedEvents */
#ifndef NOT_HELD
    OpenEvent();
    opened++;
#endif
module_starts:
    MAY_DIE;
    loaded = stored;
    MAY_DIE;
    /* code: vkevmon/loop.cc CreateEvents */
    OpenEvent();
    opened++;
    do
    :: true ->
        MAY_DIE;
        MAY_END;
        rests = true;
#ifndef TAKEN_LATE
        /* code: agent/host/waitable.cc Drain */
end_at_rest:
        atomic { bytes > 0 -> bytes = 0; rests = false };
        MAY_DIE;
        MAY_END;
        /* code: vkevmon/loop.cc ReloadTable */
        loaded = stored
#else
end_at_rest:
        atomic { bytes > 0 -> rests = false };
        loaded = stored;
        MAY_DIE;
        bytes = 0
#endif
    od;
module_ends:
    CloseEvent();
    opened--;
    goto module_starts;
dies:
    do
    :: opened > 0 -> CloseEvent(); opened--
    :: opened == 0 -> break
    od;
    goto starts
}

/* When nothing moves any more, the daemon rests, and knows what there is to know. */
active proctype AtTheEnd() {
    timeout ->
    assert(rests);
    assert(loaded == stored)
}

init {
    atomic {
        run Daemon();
        byte i = 0;
        do
        :: i < COMMANDS -> run Command(); i++
        :: else -> break
        od
    }
}
