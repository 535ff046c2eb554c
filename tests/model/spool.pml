/* The spool between the inputs and the module: batches are appended while the module rests, its length is committed
 * with the places in the inputs and with what the module has counted, and it begins anew when all of it was read.
 * A kill or a power cut can come between any two steps.
 *
 * The entries of the input are numbered. A generation of the spool holds the entries behind `base` in their order;
 * one that was written and not committed can be another one, behind the committed length.
 *
 * Proved:
 *   the module reads no entry that is not committed     assert in the pass
 *   no entry is counted twice                           assert in the pass
 *   each entry that was taken is in the spool once      assert at a start
 *   no committed entry is missing at a start            assert at Repair
 *   at the end each entry is counted                    assert at the end
 *
 * Runs, as it is and with a mechanism taken away:
 *   holds
 *   fails WITHOUT_CUT   a start leaves what is behind the committed length
 *   fails WITHOUT_SYNC  bytes are not on the disk when their length is committed
 *   fails FILE_FIRST    a new generation is made before the store says so
 *   fails PLACE_APART   length and place in the input are committed one after the other
 */
#define ENTRIES 4
#define BATCH 2
#define LONG 2   /* a generation ends when it holds so many and all were read */
#define DEATHS 2

/* The store. What is set in one d_step is one transaction. */
byte generation = 1;
byte length = 0;   /* entries of this generation */
byte base = 0;     /* entries before this generation */
byte taken = 0;    /* place in the input: entries that are in the spool */
byte read_to = 0;  /* place of the module: entries of this generation */
bool counted[ENTRIES + 1];

/* The file, as processes see it and as it is on the disk. */
byte file_generation = 1;
byte file_length = 0;
byte disk_generation = 1;
byte disk_length = 0;

/* Of the daemon that runs. */
byte read_in_pass;
byte pass_read_to;
bool pass_counts[ENTRIES + 1];
byte batch;
byte deaths = 0;
byte i;

/* A kill leaves the file as it is; after a power cut it is what is on the disk. */
#define CAN_DIE \
    if \
    :: deaths < DEATHS -> deaths++; goto starts \
    :: deaths < DEATHS -> deaths++; file_generation = disk_generation; file_length = disk_length; goto starts \
    :: skip \
    fi

/* code: agent/inputs/spool.cc Sync */
inline Sync() {
    d_step { disk_generation = file_generation; disk_length = file_length }
}

/* code: agent/inputs/spool.cc Begin */
inline BeginFile() {
    d_step { file_generation = generation; file_length = 0 };
    CAN_DIE;
    Sync()
}

active proctype Daemon() {
starts:
    skip;
    d_step {
        batch = 0;
        pass_read_to = read_to;
        i = 1;
        do
        :: i <= ENTRIES -> pass_counts[i] = counted[i]; i++
        :: else -> break
        od;
        i = 0
    };
    assert(base + length == taken);
    /* code: agent/inputs/spool.cc Repair */
    if
    :: file_generation != generation && length == 0 -> BeginFile()
    :: else ->
        assert(file_generation == generation && file_length >= length);
#ifndef WITHOUT_CUT
        d_step { file_length = length };
        CAN_DIE;
        Sync()
#endif
    fi;

    do
    :: true ->
        /* The module's pass reads to the end of the file. */
        CAN_DIE;
        d_step {
            read_in_pass = file_length;
            do
            :: pass_read_to < read_in_pass ->
                pass_read_to++;
                assert(pass_read_to <= length);
                assert(!pass_counts[base + pass_read_to]);
                pass_counts[base + pass_read_to] = true
            :: else -> break
            od
        };
        CAN_DIE;

        /* The module rests. A batch that the input has ready is brought into the spool.
         * code: agent/inputs/spool_keeper.cc Store */
        if
        :: taken < ENTRIES && taken + BATCH <= ENTRIES -> batch = BATCH
        :: taken < ENTRIES -> batch = 1
        :: skip -> batch = 0
        fi;
        /* code: agent/inputs/spool_keeper.cc BeginGeneration */
        if
        :: batch > 0 && pass_read_to == length && length >= LONG ->
#ifdef FILE_FIRST
            d_step { file_generation = generation + 1; file_length = 0 };
            CAN_DIE;
            Sync();
            CAN_DIE;
#endif
            d_step {
                generation++;
                base = base + length;
                length = 0;
                read_to = 0;
                pass_read_to = 0;
                i = 1;
                do
                :: i <= ENTRIES -> counted[i] = pass_counts[i]; i++
                :: else -> break
                od;
                i = 0
            };
            CAN_DIE;
#ifndef FILE_FIRST
            BeginFile();
#endif
            CAN_DIE
        :: else
        fi;
        /* code: agent/inputs/spool.cc Append */
        if
        :: batch > 0 ->
            file_length = length + batch;
            CAN_DIE;
#ifndef WITHOUT_SYNC
            Sync();
            CAN_DIE
#endif
        :: else
        fi;
        /* code: agent/host/store.cc CommitPass */
        d_step {
            length = length + batch;
#ifndef PLACE_APART
            taken = taken + batch;
#endif
            read_to = pass_read_to;
            i = 1;
            do
            :: i <= ENTRIES -> counted[i] = pass_counts[i]; i++
            :: else -> break
            od;
            i = 0
        };
#ifdef PLACE_APART
        CAN_DIE;
        taken = taken + batch;
#endif
        if
        :: taken == ENTRIES && read_to == length -> break
        :: else
        fi
    od;
    /* Every entry was taken, and all that was taken was read. */
    do
    :: i <= ENTRIES ->
        assert(i == 0 || counted[i]);
        i++
    :: else -> break
    od
}
