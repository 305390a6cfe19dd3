#include "Usage.h"

namespace httppool {

const char* usage() {
  return R"(usage: httppool get URL... [options]     request each URL, all side by side
       httppool run JOBS.json [options]  run the pools and tasks of a job file
       httppool demo                     show and check the library at work
       httppool trace FILE... [options]  show the requests of trace logs
get:   -d, --data TEXT            send TEXT as the body
       --data-file FILE           send the bytes of FILE as the body
       -H, --header 'NAME: VALUE' send a header field (several times: several)
       -X, --method METHOD        without it GET, and POST with a body
       -o, --output FILE          write the body of the one answer to FILE
get and run:  --concurrency N     at most N tasks at once, in their order
       --timeout SECONDS          reset each task that runs longer
       -q, --quiet                nothing but bodies, and errors on stderr
       --json                     a JSON object for each task, one a line
       --snapshot                 the library's snapshot of all pools at the end
       --user NAME --password-file FILE     sign in so, do not ask the terminal
       --trust-on-first-use       accept unverifiable certificates of the right
       --no-trust                 host, or none; else the terminal is asked
trace: --request N                only the request of that number
       --svg OUT                  draw a timeline into OUT
-h, --help: this text   --version: the version   "-" is stdin or stdout for FILE
exit status: 0 all tasks done, 1 not all, 2 unusable arguments or files,
       130 stopped by SIGINT, 143 by SIGTERM.  More in the manual, httppool(1).
)";
}

}  // namespace httppool
