mkdir libdiskwatch
genrb --encoding UTF-8 --destdir libdiskwatch de.txt en.txt root.txt
