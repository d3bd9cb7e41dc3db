// Linked statically, so that starting it costs as little as a program can.
int main() {}
