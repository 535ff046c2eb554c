/* A log, the daemon that writes it, the rotation of its files, and the pass that reads them, with a kill
 * between any two steps of a pass.
 *
 * The lines are numbered, and a writer writes them in order into the file that it has open; so a file holds
 * the lines from `first` on. A file's first line stands for its head, by which it is found again.
 *
 * Proved:
 *   no line is counted twice                assert in CheckLines
 *   what was committed is not taken back    assert in Commit
 *   at the end each line is counted         assert behind the last pass
 *
 * Runs. What is taken away is a mechanism; what is added is documented as a loss, or is no rotation as we ask for it:
 *   holds ROTATIONS=1
 *   holds ROTATIONS=2,MOST_AGAIN=4                    a rotation makes a pass look again twice at most
 *   fails ROTATIONS=2,MOST_AGAIN=3                    so two in one search can be more than three looks make good
 *   fails ROTATIONS=1,WITHOUT_IDENTITY                an opened file is not compared with the one that was looked at
 *   fails ROTATIONS=1,WITHOUT_SEARCH_AGAIN            the end of the log is taken for the place though the log has moved
 *   fails ROTATIONS=1,WITHOUT_ROLLBACK                counts of a broken pass stay
 *   fails ROTATIONS=2,MOST_AGAIN=4,GAP_IN_ROTATION    the newest backup is missing for a moment, as a pass looks
 *   fails ROTATIONS=2,MOST_AGAIN=4,EMPTY_LOGS_ROTATE  an empty log is rotated, which leaves an empty backup
 *   fails ROTATIONS=1,LATE_WRITER                     the writer stays in the old file when the new one has lines
 */
#define LINES 4
#define FILES 3
#define NONE 15
#define KILLS 1
#ifndef MOST_AGAIN
#define MOST_AGAIN 3 /* kMostLooksAgain, of the search and of the reading */
#endif

byte first[FILES];  /* number of its first line; 0 while it is empty */
byte size[FILES];   /* lines in it */
byte name[FILES];   /* file by name: the live one, its newest backup, the next one */
byte written = 0;   /* lines, of all files */
byte open_by_writer = 0;
bool writer_is_done = false;
bool rotation_is_done = false;

inline Write() {
    d_step {
        written++;
        if
        :: size[open_by_writer] == 0 -> first[open_by_writer] = written
        :: else
        fi;
        size[open_by_writer]++
    }
}

/* A syslog daemon: it writes into the file that it has open, until it is told to open the log anew. */
bool is_told = false;

proctype Writer() {
    do
    :: atomic { written < LINES -> Write() }
    :: written >= LINES && rotation_is_done && !is_told -> break
    :: atomic { is_told -> open_by_writer = name[0]; is_told = false }
    od;
    writer_is_done = true
}

/* logrotate: renames from the oldest to the newest, makes the new log, tells the writer. */
proctype Rotation() {
    byte rotations = 0;
    byte new_file;
    do
    :: rotations < ROTATIONS ->
#ifndef EMPTY_LOGS_ROTATE
        size[name[0]] > 0;
#endif
        new_file = rotations + 1;
#ifdef GAP_IN_ROTATION
        name[2] = name[1];
        name[1] = NONE;
#else
        d_step { name[2] = name[1]; name[1] = name[0]; name[0] = NONE };
#endif
#ifdef GAP_IN_ROTATION
        d_step { name[1] = name[0]; name[0] = NONE };
#endif
        name[0] = new_file;
#ifdef LATE_WRITER
        /* Somebody else writes into the new log already. */
        if
        :: d_step { written < LINES -> written++; first[new_file] = written; size[new_file] = 1 }
        :: skip
        fi;
#endif
        is_told = true;
        !is_told;
        rotations++
    :: break
    od;
    rotation_is_done = true
}

/* ---- the monitor ---- */

/* Committed in one transaction. */
byte place_head;  /* first line of the file it is in */
byte place;       /* lines of that file that were checked */
bool counted[LINES + 1];

/* Of the pass. */
byte head;
byte checked;
bool counts[LINES + 1];
byte seen[FILES];
byte seen_size[FILES];
byte backups;     /* as listed */
byte index;
byte file;
byte length;      /* of the open file, as it was opened */
byte looked_at;   /* the live file before the backups were listed */
bool was_empty;
byte again;
byte looks_again;
byte kills = 0;
bool is_last;
byte i;

#define CAN_BE_KILLED if :: kills < KILLS && !is_last -> kills++; goto killed :: skip fi

/* code: agent/host/store.cc CommitPass */
inline Commit() {
    d_step {
        place_head = head;
        place = checked;
        i = 1;
        do
        :: i <= LINES ->
            assert(!counted[i] || counts[i]);
            counted[i] = counts[i];
            i++
        :: else -> break
        od;
        i = 0
    }
}

/* A kill forgets what was not committed. */
inline ReadPlace() {
    d_step {
        head = place_head;
        checked = place;
#ifndef WITHOUT_ROLLBACK
        i = 1;
        do
        :: i <= LINES -> counts[i] = counted[i]; i++
        :: else -> break
        od;
#endif
        i = 0
    }
}

/* code: fileacc/block.cc InitFile
 * The length of a file is what it was when it was opened. */
inline Open(k) {
    d_step {
        file = name[k];
        if
        :: file == NONE -> length = 0
        :: else -> length = size[file]
        fi
    }
}

/* code: vkevmon/backup_list.cc GetSyslogBakFilelist
 * Numbered backups up to the first number that is missing. */
inline ListBackups() {
    d_step {
        backups = 0;
        do
        :: backups < FILES - 1 && name[backups + 1] != NONE -> backups++
        :: else -> break
        od
    }
}

/* code: vkevmon/pass.cc ReadNewLines */
inline CheckLines() {
    d_step {
        do
        :: checked < length ->
            assert(!counts[first[file] + checked]);
            counts[first[file] + checked] = true;
            checked++
        :: else -> break
        od
    }
}

proctype Monitor() {
pass:
    is_last = writer_is_done;
    ReadPlace();
    looks_again = 0;
find:
    again = 0;
    CAN_BE_KILLED;
search:
    /* code: vkevmon/file_set.cc SearchFiles */
    looked_at = name[0];
    if
    :: looked_at == NONE -> goto done
    :: else
    fi;
    ListBackups();
    was_empty = false;
    index = 0;
    /* code: vkevmon/file_set.cc FindHeadLine */
    do
    :: index > backups -> break
    :: index <= backups ->
        Open(index);
        if
        :: file == NONE -> break
        :: else
        fi;
        d_step { seen[index] = file; seen_size[index] = length };
        if
        :: length == 0 -> was_empty = (index == 0); break
        :: length > 0 && first[file] == head -> goto found
        :: else -> index++
        fi
    od;
    /* code: vkevmon/file_set.cc Rebaseline */
    Open(0);
    if
    :: file == NONE -> goto done
    :: else
    fi;
#ifndef WITHOUT_SEARCH_AGAIN
    /* code: vkevmon/file_set.cc IsOutdated */
    if
    :: again < MOST_AGAIN && (file != looked_at || (was_empty && length > 0)) ->
        ListBackups();
        if
        :: backups > 0 -> again++; goto search
        :: else
        fi
    :: else
    fi;
#endif
    if
    :: length == 0 -> goto done
    :: else
    fi;
    d_step { head = first[file]; checked = length };
    goto done;

found:
    CAN_BE_KILLED;
    /* code: vkevmon/pass.cc ReadFile */
    Open(index);
    if
    :: file == NONE -> goto newer
    :: else
    fi;
#ifndef WITHOUT_IDENTITY
    /* code: vkevmon/file_set.cc DetectRotation */
    if
    :: looks_again < MOST_AGAIN && file != seen[index] -> looks_again++; goto find
    :: else
    fi;
#endif
    CheckLines();

newer:
    /* code: vkevmon/pass.cc MoveToNewerFile */
    if
    :: index == 0 -> goto done
    :: else
    fi;
    index--;
    Open(index);
    if
    :: file == NONE -> goto newer
    :: else
    fi;
#ifndef WITHOUT_IDENTITY
    if
    :: looks_again < MOST_AGAIN && file != seen[index] -> looks_again++; goto find
    :: else
    fi;
#endif
    if
    :: length == 0 -> goto newer
    :: else
    fi;
    d_step { head = first[file]; checked = 0 };
    goto found;

done:
    CAN_BE_KILLED;
    Commit();
    if
    :: !is_last -> goto pass
    :: else
    fi;
    /* Whatever was written before the last pass began is in a count. An empty log ends a pass. */
    i = 1;
    do
    :: i <= LINES ->
        assert(counted[i] || size[name[0]] == 0);
        i++
    :: else -> break
    od;
    goto end;
killed:
    goto pass;
end:
    skip
}

/* The log had its first line when the monitor was started for the first time. */
init {
    atomic {
        name[1] = NONE;
        name[2] = NONE;
        Write();
        place_head = 1;
        place = 1;
        counted[1] = true;
        run Writer();
        run Rotation();
        run Monitor()
    }
}
