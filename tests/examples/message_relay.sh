#!/usr/bin/env bash
# message_relay.sh PROGRAM RESOURCES
#
# Runs in the private view: what the example prints in each language, with a fallback to the root's texts, and on wrong use.
set -uo pipefail
program=$1
mkdir -p /usr/tulsk/resources
cp -r "$2/libmessage_relay" /usr/tulsk/resources/
export TZ=UTC

diff - <("$program" en de ja it 2>/dev/null) <<'TEXT' || exit 1
en: message_relay: The backup of /home ended on March 1, 2026: 12,345 files, 7.5 GB.
de: message_relay: Die Sicherung von /home wurde am 1. März 2026 abgeschlossen: 12.345 Dateien, 7,5 GB.
ja: message_relay: 2026年3月1日に/homeのバックアップが完了しました（12,345ファイル、7.5 GB）。
it: message_relay: backup ended: /home, 12.345, 7,5 GB, 2026-03-01
TEXT

"$program" 2>/dev/null
[ $? = 64 ] || { echo "without a language the exit status is not 64"; exit 1; }
