# The guide is written for readers of the plain files. Doxygen gets references where they have code or links to files.
s|\]\((\.\./)+examples/([a-z_]+\.[ch][a-z]*)\)|](@ref \2)|g
s/`(Q_[a-z]+\(\))`/\1/g
s/`([CSE]Cmn[A-Za-z0-9]+)`/@ref kelp_cmn_4_4::\1 "\1"/g
s/`([CSE]Cmn[A-Za-z0-9]+::[A-Za-z]+)\(\)`/@ref kelp_cmn_4_4::\1 "\1()"/g
s/`(execPipe[A-Za-z]+)`/@ref kelp_cmn_4_4::\1 "\1"/g
