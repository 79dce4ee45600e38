/* A plug-in file without the export that makes it one. */
int unrelated(void);
__attribute__((visibility("default"))) int unrelated(void) { return 1; }
