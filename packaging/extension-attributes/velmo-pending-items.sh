#!/bin/sh
# Extension attribute: how many updates are listed for the users and not yet
# installed. Data type: Integer.
exec /usr/bin/velmo-agent status --ea PendingItemCount
