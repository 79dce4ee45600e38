/* Not a plug-in for want of the export that makes one. */
int unrelated(void);
int unrelated(void) { return 1; }
