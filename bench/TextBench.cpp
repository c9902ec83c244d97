// Work in progress.
int main() { return 0; }
