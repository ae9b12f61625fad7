// Entry point of the log processor.
int main() { return 0; }
