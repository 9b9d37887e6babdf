@0xc7d5c1f0a4b86e31;

interface Exchange {
  call @0 (request :Data) -> (answer :Data);
}
