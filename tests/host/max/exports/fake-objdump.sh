#!/usr/bin/env bash
# Stands in for "objdump -p FILE": prints a canned export table.
cat "${@: -1}"
