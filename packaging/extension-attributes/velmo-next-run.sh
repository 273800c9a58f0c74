#!/bin/sh
# Extension attribute: when the agent's next update run is due (UTC, ISO 8601;
# empty while a run goes on or the machine sleeps). Data type: Date.
exec /usr/bin/velmo-agent status --ea NextRun
