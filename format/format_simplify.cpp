// placeholder until the implementation lands
