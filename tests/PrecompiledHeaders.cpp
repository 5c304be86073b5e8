// The owner of the headers that the test programs share in compiled form; does nothing itself.
int main() {
  return 0;
}
