// snmp.so as another build would have made it: with another text, or from before there was one. It makes no sender, since
// nothing of it may be called.
#include <cstdlib>

#define VISIBLE extern "C" __attribute__((visibility("default")))

#ifdef OTHER_BUILD
VISIBLE const char SnmpSenderBuild[] = OTHER_BUILD;
#endif

VISIBLE void *MakeSnmpSender()
{
    abort();
}
