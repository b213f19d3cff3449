#include "launcher/command_line/usage.h"

namespace rovusim {

const char* const kUsage =
    R"(rovu-sim simulates a device on a workstation, so that an update can be rehearsed before it runs on one.

usage: rovu-sim COMMAND ... (details: rovu-sim COMMAND --help)
       rovu-sim --version

  init STATE                  make a device in the new directory STATE
  run STATE -- COMMAND...     run a command inside the device
  restart STATE               simulate the boot after an update
  show STATE                  print versions, boot sets, volumes and reference files
  calls STATE                 list the commands that were run inside
  volume put|get STATE NAME FILE
                              write or read a volume

A rehearsal:
  rovu-sim init dev --model RV-20 --key rovu_pub.pem
  rovu-sim run dev --watch --no-wait --serve http://updates.example.com/2.5=release -- \
      build/dev/rovu http://updates.example.com/2.5/update.lua
  rovu-sim restart dev
  rovu-sim show dev
)";

const char* const kInitUsage =
    R"(usage: rovu-sim init STATE [options]

Makes a device in the directory STATE, which must not exist. The active set is set 0.

  --model NAME       model that readplatform.sh prints (RV-20)
  --kernel RELEASE   kernel release of both sets (3.10.49-2)
  --rootfs VERSION   root file system version of both sets (2.4.1)
  --lebs N           erase blocks of the UBI device, 126976 bytes each (1024)
  --tmp SIZE         room in /tmp, in bytes or with K, M or G (as much as the host has)
  --root FILE        root file system: a folder, a squashfs image or a tar (BusyBox and nothing else)
  --host-tools       the workstation's programs as the root file system
  --key FILE         public key for the device's /etc/ssh/rovu_pub.pem
  --preshared FILE   key file for the device's /app0/secrets/rovu/preshared
)";

const char* const kRunUsage =
    R"(usage: rovu-sim run STATE [options] -- COMMAND [ARG...]

Runs COMMAND inside the device, in a sandbox. All that it sees is the device's own: root file system, /tmp, /app0,
/etc/ssh, /dev, the tools, kernel release, kernel command line and a network in which no host can be reached. If COMMAND
is a path that the device does not have, it is a program of the workstation, which is shown inside with its libraries.

  --watch            draw the update's progress; the command's output goes to a file
  --log FILE         file for the command's output (with --watch: STATE/output.log)
  --no-wait          skip waits of a second or more, and record them
  --fail RULE        make calls of tools fail; repeatable, the first rule that matches applies
  --until-reboot     end all that runs inside, with status 0, when the device asks for its restart
  --bind PATH        show a file or folder of the host inside, at the same path, read-only; repeatable
  --serve URL=DIR    answer the http or https URL, and all below it, from the folder DIR; repeatable. Needs nginx.
  --network          the network inside is the host's, servers on loopback included
  --limit WHAT=N     end the run, with status 124, when it goes beyond: time=SECONDS of a script or tool, memory=SIZE,
                     processes=N; or limit disk=SIZE, each for /tmp (unless the device has a size there), /app0 and
                     /etc/ssh. Repeatable
  --setenv NAME=VALUE
                     an environment variable of the command; repeatable. It gets none of the host's but TERM
  --cmdline LINE     kernel command line instead of that of the active set
  --fresh-log        empty the call log first
  --fail-syscall NAME:N=ERRNO, NAME:N+=ERRNO
                     make the program's N-th system call NAME fail, or each from the N-th on; repeatable
  --kill-at NAME:N=SIGNAL, NAME:N+=SIGNAL, NAME:N/INSTRUCTIONS=SIGNAL
                     send the signal to COMMAND's process before the N-th system call NAME of its main thread,
                     before each from the N-th on, or so many instructions after the N-th; repeatable
  --count-syscalls FILE
                     write lines "NAME COUNT OWN": the system calls of the program, and of the main thread of
                     COMMAND's process

RULE is WHICH=HOW. WHICH is K, the K-th call of the run (as numbered by "rovu-sim calls"); TOOL, each call of
the tool; or TOOL:N, its N-th call. HOW is one of:
  exit:STATUS        the tool does nothing and exits with STATUS
  signal:NAME        the tool does nothing and is killed by the signal
  missing            as if the command did not exist
  half:STATUS        the tool does its work (a volume update: half of it), then exits with STATUS
  hang               the tool never exits

The program's system calls are those of every process that runs the executable of COMMAND's process: of its
threads, and of its children until they execute another program. Names and numbers are the host's.

Exit status: the command's; 2 for wrong arguments; 128+N if signal N killed it; 124 if a limit ended it; 125 if the
device could not be set up; 126 or 127 if the command could not be run or found. SIGTERM and SIGINT are forwarded to the
command.
)";

const char* const kRestartUsage =
    R"(usage: rovu-sim restart STATE

Simulates a boot: the set that bootswitcher names becomes the active set, /tmp is emptied, and a reboot
request is cleared. Fails, and changes nothing, if that set has no complete kernel and root volume. If the root volume
holds a squashfs image or a tar, that is the root file system from then on.
)";

const char* const kShowUsage =
    R"(usage: rovu-sim show STATE

Prints the device's versions and boot sets, its volumes with their MD5s, and its reference files.
)";

const char* const kCallsUsage =
    R"(usage: rovu-sim calls STATE [--clear | --last]

Prints the commands that were run inside: number in its run, progress at the time, command line.

  --last             only those of the last run
  --clear            empty the log instead
)";

const char* const kVolumeUsage =
    R"(usage: rovu-sim volume put STATE NAME FILE
       rovu-sim volume get STATE NAME FILE

Writes a volume from a file, or a file from a volume; "-" is standard input or output. A static
volume holds exactly the bytes written; a dynamic one is padded with 0xFF bytes.
)";

}  // namespace rovusim
